// Test access to the five variant copies of the stream layer (whether one can run here is asked
// of support/variants.h), the known-answer file and a word digest shared by the random tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "random/streams/catalogue.h"
#include "runtime/report.h"
#include "support/variants.h"
#include "tvx_random.h"

namespace tvx::test {

// Entry points of one copy, as the exported frame would pick them.
struct Copy {
  int index;  // 0..4
  const char* name;
  int (*new_stream_ex)(RudStreamPtr*, int, int, const unsigned int*);
  int (*delete_stream)(RudStreamPtr*);
  const RudBrngProperties* (*row)(int);
  int (*leapfrog)(RudStreamPtr, unsigned int, int);
  int (*skip)(RudStreamPtr, long long);
  int (*register_brng)(const RudBrngProperties*);
  int (*num_rows)(void);
  int (*ext_add)(RudStreamPtr, std::uint32_t, const std::uint64_t*, void*, std::uint32_t);
  void* (*ext_find)(RudStreamPtr, std::uint32_t);
  int (*ext_count)(RudStreamPtr);
  void (*ext_remove)(RudStreamPtr, std::uint32_t);
  void (*make_key)(std::uint64_t, std::uint64_t*);
  int (*refcount)(const std::uint64_t*);
  int (*shared_count)(void);
};

#define TVX_TEST_COPY(i, v)                                                                     \
  Copy {                                                                                        \
    i, #v, rud_new_stream_ex_##v, rud_delete_stream_##v, rud_brng_row_##v,                      \
        rud_leapfrog_stream_##v, rud_skip_ahead_stream_##v, rud_register_brng_##v,              \
        rud_get_num_reg_brngs_##v, rud_ext_add_##v, rud_ext_find_##v, rud_ext_count_##v,        \
        rud_ext_remove_##v, rud_ext_make_key_##v, rud_shared_refcount_##v, rud_shared_count_##v \
  }

inline const std::vector<Copy>& all_copies() {
  static const std::vector<Copy> copies = {TVX_TEST_COPY(0, sse2), TVX_TEST_COPY(1, sse2b),
                                           TVX_TEST_COPY(2, sse42), TVX_TEST_COPY(3, avx2),
                                           TVX_TEST_COPY(4, avx512)};
  return copies;
}

inline const char* lacks(const Copy& c) {
  return copy_lacks(c.index);
}

inline void PrintTo(const Copy& c, std::ostream* os) {
  *os << c.name;
}

inline std::string copy_name(const testing::TestParamInfo<Copy>& info) {
  return info.param.name;
}

// ---- Captured parameter reports ---------------------------------------------------------------
struct Report {
  std::string name;
  long long position;
  bool operator==(const Report&) const = default;
};
inline std::vector<Report>& reports() {
  static std::vector<Report> r;
  return r;
}
inline int capture(const char* name, const std::int64_t* info, int length) {
  reports().push_back({std::string(name, static_cast<std::size_t>(length)), *info});
  return 0;
}
inline void PrintTo(const Report& r, std::ostream* os) {
  *os << r.name << "@" << r.position;
}

// Tests whose parameter reports are captured instead of printed.
class CapturesReports : public testing::Test {
 protected:
  void SetUp() override {
    previous_ = tvx_param_error_set(capture);
    reports().clear();
  }
  void TearDown() override { tvx_param_error_set(previous_); }
  // The reports made since the last call.
  static std::vector<Report> taken() { return std::exchange(reports(), {}); }

 private:
  tvx_param_error_fn previous_ = nullptr;
};

// FNV-1a over whole words, as the reference tool computes it.
struct Digest {
  std::uint64_t h = 0xCBF29CE484222325ull;
  void add(std::uint64_t w) { h = (h ^ w) * 0x100000001B3ull; }
};

// ---- Known-answer file ------------------------------------------------------------------------
struct Kat {
  std::string generator;
  std::string kind;
  std::vector<std::uint32_t> seeds;
  std::map<std::string, std::string> params;
  std::vector<std::uint64_t> expected;  // words, doubles as bit patterns, or one digest
  std::string text;                     // the line, for messages
  std::uint64_t number(const std::string& key) const { return std::stoull(params.at(key)); }
};

inline std::vector<std::uint64_t> hex_list(const std::string& text, char sep) {
  std::vector<std::uint64_t> out;
  std::stringstream in(text);
  std::string item;
  while (std::getline(in, item, sep)) {
    if (!item.empty()) out.push_back(std::stoull(item, nullptr, 16));
  }
  return out;
}

inline std::vector<Kat> read_kats(const std::string& path) {
  std::vector<Kat> kats;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    const auto colon = line.find(" : ");
    if (colon == std::string::npos) continue;
    Kat k;
    k.text = line;
    std::stringstream head(line.substr(0, colon));
    head >> k.generator >> k.kind;
    std::string field;
    while (head >> field) {
      const auto eq = field.find('=');
      const std::string key = field.substr(0, eq), value = field.substr(eq + 1);
      if (key == "seeds") {
        if (value != "-") {
          for (std::uint64_t w : hex_list(value, ','))
            k.seeds.push_back(static_cast<std::uint32_t>(w));
        }
      } else {
        k.params[key] = value;
      }
    }
    k.expected = hex_list(line.substr(colon + 3), ' ');
    kats.push_back(k);
  }
  return kats;
}

inline int brng_of(const std::string& generator) {
  if (generator == "mcg31") return RUD_BRNG_MCG31;
  if (generator == "r250") return RUD_BRNG_R250;
  if (generator == "mrg32k3a") return RUD_BRNG_MRG32K3A;
  if (generator == "mcg59") return RUD_BRNG_MCG59;
  if (generator == "ars5") return RUD_BRNG_ARS5;
  if (generator == "philox4x32x10") return RUD_BRNG_PHILOX4X32X10;
  if (generator == "mt19937") return RUD_BRNG_MT19937;
  if (generator == "sfmt19937") return RUD_BRNG_SFMT19937;
  if (generator.rfind("mt2203_", 0) == 0) return RUD_BRNG_MT2203 + std::stoi(generator.substr(7));
  return -1;
}

}  // namespace tvx::test
