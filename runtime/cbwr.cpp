// The reproducibility word: TVX_CBWR pins the code branch that runs, so that results repeat from
// run to run or from machine to machine. The word keeps the branch code in its low 16 bits and
// the strict request in bit 16. Detection turns the branch into a CPU type.
#include <atomic>
#include <cstdio>
#include <cstring>

#include "runtime/cpu_probe.h"
#include "runtime/cpu_type.h"
#include "runtime/report.h"

namespace {

constexpr std::uint32_t kUnparsed = 0xFFFFFFFFu;
constexpr int kOff = 1;
constexpr int kAuto = 2;

std::atomic<std::uint32_t> g_word{kUnparsed};

struct BranchWord {
  const char* word;
  int code;
};
// Accepted words, in the order they are compared. Several old words share a branch.
constexpr BranchWord kWords[] = {
    {"AUTO", 2},    {"COMPATIBLE", 3},     {"SSE2", 4},       {"SSE3", 4},  {"SSSE3", 4},
    {"SSE4_1", 7},  {"SSE4_2", 8},         {"AVX", 8},        {"AVX2", 10}, {"AVX512_PLT", 10},
    {"AVX512", 12}, {"AVX512_PLT_E1", 10}, {"AVX512_E1", 14},
};

// Highest branch the processor can run, from its raw class.
int highest_branch() {
  if (!tvx_serv_has_home_vendor()) return 2;
  int fatal = 0;
  switch (tvx_serv_cpu_classify(&fatal)) {
    case 0:
    case 1:
      return 4;
    case 2:
      return tvx_cpu_has_feature(TVX_FEAT_SSE4_1) ? 7 : 4;
    case 3:
    case 4:
      return 8;
    case 5:
    case 15:
      return 10;
    case 7:
      return 12;
    case 9:
    case 10:
    case 12:
    case 14:
    case 16:
      return 14;
    default:
      return -4;
  }
}

std::uint32_t parse() {
  char text[128];
  int len = tvx_getenv("TVX_CBWR", text, sizeof text);
  if (len <= 0) return kOff;

  // A trailing ",STRICT" (spaces allowed before the word) asks for the strict bit.
  std::uint32_t strict = 0;
  static constexpr char kStrict[] = "STRICT";
  constexpr int kStrictLen = sizeof kStrict - 1;
  if (len > kStrictLen && std::strcmp(text + len - kStrictLen, kStrict) == 0) {
    for (int i = len - kStrictLen - 1; i >= 0; --i) {
      if (text[i] == ' ') continue;
      if (text[i] != ',') break;
      text[i] = '\0';
      strict = TVX_CBWR_STRICT;
    }
  }

  const char* word = text;
  static constexpr char kPrefix[] = "BRANCH=";
  if (std::strncmp(word, kPrefix, sizeof kPrefix - 1) == 0) word += sizeof kPrefix - 1;

  for (const BranchWord& w : kWords) {
    if (std::strcmp(word, w.word) != 0) continue;
    if (w.code == kAuto) {
      (void)tvx_cbwr_check(static_cast<std::uint32_t>(kAuto) | strict);
      return kAuto | strict;
    }
    const int code =
        tvx_cbwr_check(static_cast<std::uint32_t>(w.code) | strict) == 0 ? w.code : kAuto;
    return static_cast<std::uint32_t>(code) | strict;
  }
  return kAuto;
}

int answer(std::uint32_t word, int what) {
  if (what == 1) return static_cast<int>(word & TVX_CBWR_BRANCH_MASK);
  return static_cast<int>(word);
}

}  // namespace

extern "C" {

int tvx_cbwr_check(std::uint32_t word) {
  const int code = static_cast<int>(word & TVX_CBWR_BRANCH_MASK);
  const int highest = highest_branch();
  const bool home = tvx_serv_has_home_vendor() != 0;
  if (home) {
    if (code > highest && code < 15) return -3;
    if (code == 11 && highest == 12) return -3;
    if ((code == 11 || code == 13) && highest == 14) return -3;
  }
  if (code == 6) tvx_print_message(0, TVX_MSG_SSSE3_DEPRECATED, 0);
  if (code == 9) tvx_print_message(0, TVX_MSG_AVX_DEPRECATED, 0);
  if (word > 0x1FFFFu) return -3;
  if (code == 2 || code == 3) return 0;
  if (code >= 4 && code <= 14) return home ? 0 : -3;
  return -2;
}

int tvx_cbwr_get_unlocked(int what) {
  if (what != 1 && what != -1) return -2;
  std::uint32_t word = g_word.load(std::memory_order_acquire);
  if (word == kUnparsed) {
    word = parse();
    g_word.store(word, std::memory_order_release);
  }
  return answer(word, what);
}

int tvx_cbwr_get(int what) {
  if (what != 1 && what != -1) return -2;
  std::uint32_t word = g_word.load(std::memory_order_acquire);
  if (word == kUnparsed) {
    tvx_lock(&tvx_cpu_detect_lock);
    tvx_cbwr_get_unlocked(what);
    tvx_unlock(&tvx_cpu_detect_lock);
    word = g_word.load(std::memory_order_acquire);
  }
  return answer(word, what);
}

const char* tvx_cbwr_branch_name(int code, char* buffer, int size) {
  static constexpr const char* kNames[] = {
      nullptr,  "OFF",    "AUTO", "COMPATIBLE", "SSE2",  nullptr,  "SSSE3",
      "SSE4_1", "SSE4_2", "AVX",  "AVX2",       nullptr, "AVX512",
  };
  constexpr int kNamed = static_cast<int>(sizeof kNames / sizeof kNames[0]);
  if (buffer == nullptr || size <= 0) return buffer;
  if (code >= 0 && code < kNamed && kNames[code] != nullptr) {
    std::snprintf(buffer, static_cast<std::size_t>(size), "%s", kNames[code]);
  } else {
    std::snprintf(buffer, static_cast<std::size_t>(size), "?%x", static_cast<unsigned>(code));
  }
  return buffer;
}

void tvx_cbwr_test_reset(void) {
  g_word.store(kUnparsed, std::memory_order_release);
}

void tvx_cbwr_test_set(std::uint32_t word) {
  g_word.store(word, std::memory_order_release);
}

}  // extern "C"
