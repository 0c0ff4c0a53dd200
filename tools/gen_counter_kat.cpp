// Known answers of the counter-based generators, computed with Random123's headers, which serve as
// the independent reference (a test-only program: the library does not use Random123).
//
//   gen_counter_kat <Random123 kat_vectors, uncompressed> > tests/data/kat/counter_generators.txt
//
// The program first checks Random123's Philox4x32-10 and ARS (ten rounds, the published setting)
// against every line of the published known-answer file for them, and stops on a mismatch. It then
// writes lines in the format of tools/gen_rng_kat.py: the published Philox vectors as stream words
// (seeds = key words, then counter words), the same three inputs for ARS-5, runs across counter
// carries (the low word, the low 64 bits, and 2^128 - 1 to 0), skips, and digests of 10^6 words.
#include <Random123/ars.h>
#include <Random123/philox.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using u128 = unsigned __int128;

struct Gen {
  const char* name;
  int key_words;
};
constexpr Gen kPhilox = {"philox4x32x10", 2};
constexpr Gen kArs5 = {"ars5", 4};

// Block of counter value c under key k (k.size() words).
void block(const Gen& g, const std::vector<std::uint32_t>& key, u128 c, std::uint32_t out[4]) {
  std::uint32_t cw[4];
  std::memcpy(cw, &c, sizeof cw);
  if (g.key_words == 2) {
    philox4x32_ctr_t ctr = {{cw[0], cw[1], cw[2], cw[3]}};
    philox4x32_key_t k = {{key[0], key[1]}};
    const philox4x32_ctr_t r = philox4x32_R(10, ctr, k);
    std::memcpy(out, r.v, 16);
  } else {
    ars4x32_ctr_t ctr = {{cw[0], cw[1], cw[2], cw[3]}};
    ars4x32_key_t k = {{key[0], key[1], key[2], key[3]}};
    const ars4x32_ctr_t r = ars4x32_R(5, ctr, k);
    std::memcpy(out, r.v, 16);
  }
}

// The stream's words, by block offset and word index (block offsets wrap with the counter).
struct Stream {
  const Gen& g;
  std::vector<std::uint32_t> key;
  u128 counter;
  // Word `w` of the block `blocks` places after the seeded counter.
  std::uint32_t word(u128 blocks, int w) const {
    std::uint32_t b[4];
    block(g, key, counter + blocks + static_cast<u128>(w / 4), b);
    return b[w % 4];
  }
};

Stream stream_of(const Gen& g, const std::vector<std::uint32_t>& seeds) {
  std::vector<std::uint32_t> w(8, 0);
  for (std::size_t i = 0; i < seeds.size() && i < 8; ++i) w[i] = seeds[i];
  Stream s{g, std::vector<std::uint32_t>(w.begin(), w.begin() + g.key_words), 0};
  std::memcpy(&s.counter, w.data() + g.key_words, 16);
  return s;
}

std::string seeds_text(const std::vector<std::uint32_t>& seeds) {
  if (seeds.empty()) return "-";
  std::string t;
  char buf[16];
  for (std::size_t i = 0; i < seeds.size(); ++i) {
    std::snprintf(buf, sizeof buf, "%s%x", i ? "," : "", seeds[i]);
    t += buf;
  }
  return t;
}

void words_line(const Gen& g, const char* kind, const std::vector<std::uint32_t>& seeds,
                const std::string& extra, u128 first_block, int first_word, int count) {
  const Stream s = stream_of(g, seeds);
  std::printf("%s %s seeds=%s%s count=%d :", g.name, kind, seeds_text(seeds).c_str(), extra.c_str(),
              count);
  for (int i = 0; i < count; ++i) std::printf(" %08x", s.word(first_block, first_word + i));
  std::printf("\n");
}

void digest_line(const Gen& g, const std::vector<std::uint32_t>& seeds, int count) {
  const Stream s = stream_of(g, seeds);
  std::uint64_t h = 0xCBF29CE484222325ull;
  for (int b = 0; b < count / 4; ++b) {
    std::uint32_t w[4];
    block(g, s.key, s.counter + static_cast<u128>(b), w);
    for (std::uint32_t x : w) h = (h ^ x) * 0x100000001B3ull;
  }
  std::printf("%s digest seeds=%s count=%d : %016" PRIx64 "\n", g.name, seeds_text(seeds).c_str(),
              count, h);
}

// Checks Random123 against the published lines "philox4x32 10 ctr(4) key(2) : out(4)" and
// "ars4x32 10 ctr(4) key(4) : out(4)"; returns the inputs of the lines, as seed lists.
bool check_published(const char* path, std::vector<std::vector<std::uint32_t>>& philox,
                     std::vector<std::vector<std::uint32_t>>& ars) {
  std::ifstream in(path);
  std::string line;
  int checked = 0;
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string name;
    unsigned rounds = 0;
    f >> name >> rounds;
    const bool is_philox = name == "philox4x32", is_ars = name == "ars4x32";
    if ((!is_philox && !is_ars) || rounds != 10) continue;
    const int nkey = is_philox ? 2 : 4;
    std::vector<std::uint32_t> v;
    std::string tok;
    while (f >> tok) v.push_back(static_cast<std::uint32_t>(std::stoul(tok, nullptr, 16)));
    if (v.size() != static_cast<std::size_t>(8 + nkey)) return false;
    std::uint32_t got[4];
    if (is_philox) {
      philox4x32_ctr_t c = {{v[0], v[1], v[2], v[3]}};
      philox4x32_key_t k = {{v[4], v[5]}};
      std::memcpy(got, philox4x32_R(10, c, k).v, 16);
    } else {
      ars4x32_ctr_t c = {{v[0], v[1], v[2], v[3]}};
      ars4x32_key_t k = {{v[4], v[5], v[6], v[7]}};
      std::memcpy(got, ars4x32_R(10, c, k).v, 16);
    }
    if (std::memcmp(got, v.data() + 4 + nkey, 16) != 0) {
      std::fprintf(stderr, "reference disagrees with the published line: %s\n", line.c_str());
      return false;
    }
    // Our seeds: key words first, then counter words.
    std::vector<std::uint32_t> seeds(v.begin() + 4, v.begin() + 4 + nkey);
    seeds.insert(seeds.end(), v.begin(), v.begin() + 4);
    (is_philox ? philox : ars).push_back(seeds);
    ++checked;
  }
  return checked == 6;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen_counter_kat <kat_vectors>\n");
    return 2;
  }
  std::vector<std::vector<std::uint32_t>> philox_inputs, ars_inputs;
  if (!check_published(argv[1], philox_inputs, ars_inputs)) {
    std::fprintf(stderr, "the published Philox and ARS lines were not all found and matched\n");
    return 1;
  }
  std::printf("# Known answers of the counter-based generators (Philox4x32-10, ARS-5).\n");
  std::printf(
      "# Written by tools/gen_counter_kat.cpp from Random123's headers, after it checked them\n");
  std::printf(
      "# against Random123's published kat_vectors; the test random.counter_kat_file_current\n");
  std::printf("# regenerates this file. Same line format as basic_generators.txt.\n");
  // The published inputs (zeros, all ones, digits of pi): twelve words are the published block of
  // the counter, then the next two blocks (all ones carries through 2^128 to 0).
  for (const auto& seeds : philox_inputs) words_line(kPhilox, "words", seeds, "", 0, 0, 12);
  // The same three inputs with ARS-5; ARS takes a four-word key, so the counter words follow it.
  for (const auto& published : ars_inputs) words_line(kArs5, "words", published, "", 0, 0, 12);
  const std::vector<std::uint32_t> pi = {0x243f6a88, 0x85a308d3, 0x13198a2e, 0x03707344,
                                         0xa4093822, 0x299f31d0, 0x082efa98, 0xec4e6c89};
  for (const Gen* g : {&kPhilox, &kArs5}) {
    const int kw = g->key_words;
    std::vector<std::uint32_t> seeds(pi.begin(), pi.begin() + kw);
    // Missing seed words are zero: key only, and nothing at all.
    words_line(*g, "words", seeds, "", 0, 0, 8);
    words_line(*g, "words", {}, "", 0, 0, 8);
    words_line(*g, "words", {7}, "", 0, 0, 8);
    // Counters that carry inside a vector batch: out of the low word, out of the low 64 bits,
    // and through 2^128 - 1 to 0.
    const std::uint32_t carries[3][4] = {{0xfffffff0u, 5, 0, 0},
                                         {0xfffffff0u, 0xffffffffu, 7, 0},
                                         {0xfffffff0u, 0xffffffffu, 0xffffffffu, 0xffffffffu}};
    for (const auto& c : carries) {
      std::vector<std::uint32_t> s = seeds;
      s.insert(s.end(), c, c + 4);
      words_line(*g, "words", s, "", 0, 0, 260);
    }
    // Skips: inside the first block, onto a block edge, across blocks, far.
    std::vector<std::uint32_t> full(pi.begin(), pi.begin() + kw + 4);
    for (unsigned long long k : {3ull, 4ull, 5ull, 1000003ull, 0x8000000000000001ull}) {
      words_line(*g, "skip", full, " nskip=" + std::to_string(k), k >> 2, static_cast<int>(k & 3),
                 9);
    }
    // Several-word skips, wrapping the counter: 2^64 + 6 and 2^130 - 1 words (mod 2^128 blocks).
    words_line(*g, "skipex", full, " nskip=6,1", (u128{1} << 62) + 1, 2, 9);
    words_line(*g, "skipex", full, " nskip=ffffffffffffffff,ffffffffffffffff,3", ~u128{0}, 3, 9);
    digest_line(*g, full, 1000000);
  }
  return 0;
}
