// The stream layer: generator numbering and catalogue rows, the exported frames with their
// statuses and report positions, registration, extension blocks and the shared-block table, the
// choice of copy by CPU type and the verbose line.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "random/rng_copies.h"
#include "random/streams/image.h"
#include "runtime/cpu_type.h"
#include "runtime/memory.h"
#include "runtime/verbose.h"
#include "support/subprocess.h"

namespace tvx::test {
namespace {

// Tests of the exports, with their parameter reports captured.
class Frames : public CapturesReports {};

const Copy& copy_in_use() {
  return all_copies()[static_cast<std::size_t>(tvx_rud_variant_of_cpu_type(tvx_rud_cpu_type()))];
}

// ---- Numbering and rows -----------------------------------------------------------------------
TEST_F(Frames, RowsOfTheBuiltGenerators) {
  struct Expected {
    int brng, size, nseeds, zero, word, bits;
  };
  const Expected rows[] = {{RUD_BRNG_MCG31, 24, 1, 0, 4, 31},
                           {RUD_BRNG_R250, 1024, 252, 1, 4, 32},
                           {RUD_BRNG_MRG32K3A, 40, 6, 1, 4, 32},
                           {RUD_BRNG_MCG59, 32, 1, 0, 8, 59}};
  for (const Expected& e : rows) {
    SCOPED_TRACE(e.brng);
    RudBrngProperties p;
    std::memset(&p, 0xCA, sizeof p);
    ASSERT_EQ(rudGetBrngProperties(e.brng, &p), 0);
    EXPECT_EQ(p.StreamStateSize, e.size);
    EXPECT_EQ(p.NSeeds, e.nseeds);
    EXPECT_EQ(p.IncludesZero, e.zero);
    EXPECT_EQ(p.WordSize, e.word);
    EXPECT_EQ(p.NBits, e.bits);
    // The older number of the row gives the same row and a stream that remembers that number.
    const int older = (e.brng >> 20) - 1;
    RudBrngProperties q;
    ASSERT_EQ(rudGetBrngProperties(older, &q), 0);
    EXPECT_EQ(std::memcmp(&p, &q, sizeof p), 0);
    RudStreamPtr a = nullptr, b = nullptr;
    ASSERT_EQ(rudNewStream(&a, older, 42), 0);
    ASSERT_EQ(rudNewStream(&b, e.brng, 42), 0);
    EXPECT_EQ(rudGetStreamStateBrng(a), older);
    EXPECT_EQ(rudGetStreamStateBrng(b), e.brng);
    unsigned int wa[8], wb[8];
    ASSERT_EQ(p.iBRng(a, 4, wa), 0);
    ASSERT_EQ(q.iBRng(b, 4, wb), 0);
    EXPECT_EQ(std::memcmp(wa, wb, 4 * static_cast<std::size_t>(e.word)), 0);
    EXPECT_EQ(rudDeleteStream(&a), 0);
    EXPECT_EQ(rudDeleteStream(&b), 0);
  }
  EXPECT_TRUE(taken().empty());
  EXPECT_EQ(rudGetNumRegBrngs(), copy_in_use().num_rows());
}

// Numbers outside the catalogue: a member past the count, rows not provided by this build, the
// abstract numbers, rows past the count, the older table's end.
TEST_F(Frames, NumberCheck) {
  // clang-format off
  const int refused[] = {
      RUD_BRNG_MCG31 + 1, RUD_BRNG_MRG32K3A + 0xFFFFF, RUD_BRNG_WH, RUD_BRNG_WH + 272,
      RUD_BRNG_MT19937 + 1, RUD_BRNG_MT2203 + 6024, RUD_BRNG_PHILOX4X32X10 + 1,
      RUD_BRNG_SFMT19937 + 1, RUD_BRNG_IABSTRACT, RUD_BRNG_DABSTRACT, RUD_BRNG_SABSTRACT,
      0x7FFFFFFF, 0x40000000, 4, 5, 276, 277, 278, 281, 0xFFFFF};
  // clang-format on
  for (int brng : refused) {
    SCOPED_TRACE(brng);
    RudStreamPtr s = reinterpret_cast<RudStreamPtr>(0x1);
    EXPECT_EQ(rudNewStream(&s, brng, 1), RUD_RNG_ERROR_INVALID_BRNG);
    EXPECT_EQ(taken(), (std::vector<Report>{{"rudNewStream", 2}}));
    RudBrngProperties p;
    EXPECT_EQ(rudGetBrngProperties(brng, &p), RUD_RNG_ERROR_INVALID_BRNG);
    EXPECT_EQ(taken(), (std::vector<Report>{{"rudRegisterBrng", 1}}));
  }
  // Rows 279 and 280 of the older table pass the check and are blank: zeros, and no stream.
  for (int brng : {279, 280}) {
    RudBrngProperties p;
    std::memset(&p, 0xCA, sizeof p);
    EXPECT_EQ(rudGetBrngProperties(brng, &p), 0);
    const RudBrngProperties zero = {};
    EXPECT_EQ(std::memcmp(&p, &zero, sizeof p), 0);
    RudStreamPtr s = nullptr;
    EXPECT_EQ(rudNewStream(&s, brng, 1), RUD_RNG_ERROR_INVALID_BRNG);
    EXPECT_EQ(s, nullptr);
  }
  taken();
}

// ---- Frames -----------------------------------------------------------------------------------
TEST_F(Frames, NewStreamReports) {
  RudStreamPtr s = nullptr;
  EXPECT_EQ(rudNewStream(&s, -1, 1), RUD_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(rudNewStreamEx(&s, -5, 1, nullptr), RUD_RNG_ERROR_INVALID_BRNG);
  // Refused by the copy: reported under rudNewStream by both exports.
  const unsigned int seed[1] = {1};
  EXPECT_EQ(rudNewStreamEx(&s, RUD_BRNG_IABSTRACT, 1, seed), RUD_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(taken(),
            (std::vector<Report>{{"rudNewStream", 2}, {"rudNewStreamEx", 2}, {"rudNewStream", 2}}));
  EXPECT_EQ(s, nullptr);
  // Null out pointer, null seed words: a status, no crash, nothing allocated.
  EXPECT_EQ(rudNewStream(nullptr, RUD_BRNG_MCG31, 1), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(rudNewStreamEx(&s, RUD_BRNG_MRG32K3A, 2, nullptr), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(s, nullptr);
  // No seed words at all is a default state.
  ASSERT_EQ(rudNewStreamEx(&s, RUD_BRNG_MCG31, 0, nullptr), 0);
  unsigned int w[2];
  RudBrngProperties p;
  ASSERT_EQ(rudGetBrngProperties(RUD_BRNG_MCG31, &p), 0);
  ASSERT_EQ(p.iBRng(s, 2, w), 0);
  EXPECT_EQ(w[0], 1u);
  EXPECT_EQ(w[1], 1132489760u);
  EXPECT_EQ(rudDeleteStream(&s), 0);
}

TEST_F(Frames, StreamTestOfEveryOperation) {
  RudStreamPtr s = nullptr;
  ASSERT_EQ(rudNewStream(&s, RUD_BRNG_MCG31, 7), 0);
  auto* valid = reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(s) + 4);
  // Only the low byte counts: 0x201 is live, 0x100 is not.
  *valid = 0x201;
  EXPECT_EQ(rudGetStreamStateBrng(s), RUD_BRNG_MCG31);
  *valid = 0x100;
  for (RudStreamPtr bad : {s, static_cast<RudStreamPtr>(nullptr)}) {
    const int code = bad == nullptr ? RUD_ERROR_NULL_PTR : RUD_RNG_ERROR_BAD_STREAM;
    RudStreamPtr copy = bad;
    EXPECT_EQ(rudGetStreamStateBrng(bad), code);
    EXPECT_EQ(rudGetStreamSize(bad), code);
    EXPECT_EQ(rudLeapfrogStream(bad, 0, 2), code);
    EXPECT_EQ(rudSkipAheadStream(bad, 10), code);
    EXPECT_EQ(rudDeleteStream(&copy), code);
    EXPECT_EQ(taken(), (std::vector<Report>{{"rudGetStreamStateBrng", 1},
                                            {"rudGetStreamSize", 1},
                                            {"rudLeapfrogStream", 1},
                                            {"rudSkipAheadStream", 1},
                                            {"rudDeleteStream", 1}}));
  }
  EXPECT_EQ(rudDeleteStream(nullptr), RUD_ERROR_NULL_PTR);
  taken();
  *valid = 1;
  EXPECT_EQ(rudDeleteStream(&s), 0);
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(rudDeleteStream(&s), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(taken(), (std::vector<Report>{{"rudDeleteStream", 1}}));
}

TEST_F(Frames, LeapfrogAndSkipThroughTheExports) {
  RudStreamPtr r250 = nullptr, mcg = nullptr, plain = nullptr;
  ASSERT_EQ(rudNewStream(&r250, RUD_BRNG_R250, 1), 0);
  // A negative stream count is refused before the generator is asked (R250 would say -1002).
  EXPECT_EQ(rudLeapfrogStream(r250, 0, -1), RUD_RNG_ERROR_LEAPFROG_NSTREAMS);
  EXPECT_EQ(rudLeapfrogStream(r250, 0, 2), RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED);
  EXPECT_EQ(rudSkipAheadStream(r250, 2), RUD_RNG_ERROR_SKIPAHEAD_UNSUPPORTED);
  EXPECT_TRUE(taken().empty());
  // A negative count is a count above 2^63: MCG59's period is 2^57, so -2^63 skips whole periods.
  ASSERT_EQ(rudNewStream(&mcg, RUD_BRNG_MCG59, 3), 0);
  ASSERT_EQ(rudNewStream(&plain, RUD_BRNG_MCG59, 3), 0);
  EXPECT_EQ(rudSkipAheadStream(mcg, static_cast<long long>(1ull << 63)), 0);
  RudBrngProperties p;
  ASSERT_EQ(rudGetBrngProperties(RUD_BRNG_MCG59, &p), 0);
  std::uint64_t a[4], b[4];
  p.iBRng(mcg, 4, reinterpret_cast<unsigned int*>(a));
  p.iBRng(plain, 4, reinterpret_cast<unsigned int*>(b));
  EXPECT_EQ(std::memcmp(a, b, sizeof a), 0);
  for (RudStreamPtr* s : {&r250, &mcg, &plain}) EXPECT_EQ(rudDeleteStream(s), 0);
}

TEST_F(Frames, LowerCaseTwins) {
  const int brng = RUD_BRNG_MRG32K3A, n = 3, bad = -4;
  const unsigned int seed = 5, words[3] = {5, 6, 7}, k = 0;
  const int nstreams = 2;
  const long long nskip = 100;
  RudStreamPtr a = nullptr, b = nullptr, c = nullptr;
  ASSERT_EQ(rudnewstream(&a, &brng, &seed), 0);
  ASSERT_EQ(rudnewstreamex(&b, &brng, &n, words), 0);
  ASSERT_EQ(rudNewStreamEx(&c, brng, 3, words), 0);
  EXPECT_EQ(rudgetstreamstatebrng(&a), brng);
  EXPECT_EQ(rudgetstreamsize(&a), 40 + 8);
  EXPECT_EQ(rudskipaheadstream(&b, &nskip), 0);
  EXPECT_EQ(rudSkipAheadStream(c, 100), 0);
  EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(b) + 16, reinterpret_cast<char*>(c) + 16, 24), 0);
  EXPECT_EQ(rudleapfrogstream(&b, &k, &nstreams), RUD_RNG_ERROR_LEAPFROG_UNSUPPORTED);
  RudBrngProperties p, q;
  EXPECT_EQ(rudgetbrngproperties(&brng, &p), 0);
  EXPECT_EQ(rudGetBrngProperties(brng, &q), 0);
  EXPECT_EQ(std::memcmp(&p, &q, sizeof p), 0);
  EXPECT_EQ(rudgetnumregbrngs(), rudGetNumRegBrngs());
  EXPECT_TRUE(taken().empty());
  // Null scalars and bad numbers, at the position of the argument.
  RudStreamPtr none = nullptr;
  EXPECT_EQ(rudnewstream(&none, nullptr, &seed), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(rudnewstream(&none, &bad, &seed), RUD_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(rudskipaheadstream(&b, nullptr), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(rudleapfrogstream(&none, &k, &nstreams), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(taken(), (std::vector<Report>{{"rudNewStream", 2},
                                          {"rudNewStream", 2},
                                          {"rudSkipAheadStream", 2},
                                          {"rudLeapfrogStream", 1}}));
  EXPECT_EQ(ruddeletestream(&a), 0);
  EXPECT_EQ(a, nullptr);
  EXPECT_EQ(rudDeleteStream(&b), 0);
  EXPECT_EQ(rudDeleteStream(&c), 0);
}

// ---- Registration -----------------------------------------------------------------------------
// A user generator: a 32-bit counter in the word after the header.
int counter_init(int op, RudStreamPtr s, int n, const void* params) {
  if (op != RUD_INIT_SEED) return RUD_RNG_ERROR_SKIPAHEAD_UNSUPPORTED;
  std::uint32_t start = 0;
  if (n >= 1) std::memcpy(&start, params, 4);
  std::memcpy(reinterpret_cast<char*>(s) + 16, &start, 4);
  return 0;
}
int counter_i(RudStreamPtr s, int n, unsigned int r[]) {
  auto* x = reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(s) + 16);
  for (int i = 0; i < n; ++i) r[i] = (*x)++;
  return 0;
}
int counter_d(RudStreamPtr, int, double[], double, double) {
  return 0;
}
int counter_s(RudStreamPtr, int, float[], float, float) {
  return 0;
}
const RudBrngProperties kCounter = {20, 1, 1, 4, 32, counter_init, counter_s, counter_d, counter_i};

TEST_F(Frames, RegistrationOfAUserGenerator) {
  const ChildResult r = run_in_child({}, [] {
    tvx_param_error_set(capture);
    const int number = rudRegisterBrng(&kCounter);
    if (number != 0x1100000 || rudGetNumRegBrngs() != 17) return 1;
    RudStreamPtr s = nullptr;
    if (rudNewStream(&s, number, 40) != 0) return 2;
    // The header is the library's; the generator's state starts behind it.
    if (rudGetStreamStateBrng(s) != number || rudGetStreamSize(s) != 28) return 3;
    RudBrngProperties p;
    if (rudGetBrngProperties(number, &p) != 0 || p.iBRng != counter_i) return 4;
    unsigned int w[3];
    if (p.iBRng(s, 3, w) != 0 || w[0] != 40 || w[2] != 42) return 5;
    if (rudSkipAheadStream(s, 1) != RUD_RNG_ERROR_SKIPAHEAD_UNSUPPORTED) return 6;
    if (rudDeleteStream(&s) != 0) return 7;
    // A registered row has one member; the registration went to the copy in use only.
    if (rudNewStream(&s, number + 1, 1) != RUD_RNG_ERROR_INVALID_BRNG) return 8;
    for (const Copy& c : all_copies()) {
      if (!lacks(c) && c.num_rows() != (&c == &copy_in_use() ? 17 : 16)) return 9;
    }
    if (reports() != std::vector<Report>{{"rudNewStream", 2}}) return 10;
    return 0;
  });
  EXPECT_EQ(r.exit_code, 0) << r.out;
}

TEST_F(Frames, RegistrationChecksInOrder) {
  struct Case {
    RudBrngProperties row;
    int status;
  };
  RudBrngProperties base = kCounter;
  auto with = [&](auto edit) {
    RudBrngProperties p = base;
    edit(p);
    return p;
  };
  // clang-format off
  const Case cases[] = {
      {with([](auto& p) { p.StreamStateSize = -1, p.WordSize = 3, p.iBRng = nullptr; }), RUD_RNG_ERROR_BAD_STATE_SIZE},
      {with([](auto& p) { p.StreamStateSize = 15; }), RUD_RNG_ERROR_BAD_STATE_SIZE},
      {with([](auto& p) { p.WordSize = 2, p.NSeeds = 0; }), RUD_RNG_ERROR_BAD_WORD_SIZE},
      {with([](auto& p) { p.WordSize = 32; }), RUD_RNG_ERROR_BAD_WORD_SIZE},
      {with([](auto& p) { p.NSeeds = 0, p.NBits = 0; }), RUD_RNG_ERROR_BAD_NSEEDS},
      {with([](auto& p) { p.NBits = 0, p.sBRng = nullptr; }), RUD_RNG_ERROR_BAD_NBITS},
      {with([](auto& p) { p.InitStream = nullptr; }), RUD_ERROR_NULL_PTR},
      {with([](auto& p) { p.sBRng = nullptr; }), RUD_ERROR_NULL_PTR},
      {with([](auto& p) { p.dBRng = nullptr; }), RUD_ERROR_NULL_PTR},
      {with([](auto& p) { p.iBRng = nullptr; }), RUD_ERROR_NULL_PTR},
  };
  // clang-format on
  const int rows = rudGetNumRegBrngs();
  for (const Case& c : cases) {
    EXPECT_EQ(rudRegisterBrng(&c.row), c.status);
    EXPECT_EQ(taken(), (std::vector<Report>{{"rudRegisterBrng", 1}}));
  }
  EXPECT_EQ(rudRegisterBrng(nullptr), RUD_ERROR_NULL_PTR);
  RudBrngProperties p;
  EXPECT_EQ(rudGetBrngProperties(RUD_BRNG_MCG31, nullptr), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(rudGetBrngProperties(-1, &p), RUD_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(taken().size(), 3u);
  EXPECT_EQ(rudGetNumRegBrngs(), rows);
}

// 496 registrations fill the 512 rows; the next is refused and the catalogue stays whole.
TEST_F(Frames, FullCatalogueIsRefused) {
  const ChildResult r = run_in_child({}, [] {
    tvx_param_error_set(capture);
    int last = 0;
    for (int i = 16; i < RUD_MAX_BRNG_ROWS; ++i) last = rudRegisterBrng(&kCounter);
    if (last != ((RUD_MAX_BRNG_ROWS - 1) << 20) + 0x100000) return 1;
    if (rudGetNumRegBrngs() != RUD_MAX_BRNG_ROWS) return 2;
    if (rudRegisterBrng(&kCounter) != RUD_RNG_ERROR_CATALOGUE_FULL) return 3;
    if (rudGetNumRegBrngs() != RUD_MAX_BRNG_ROWS) return 4;
    RudStreamPtr s = nullptr;
    if (rudNewStream(&s, last, 9) != 0 || rudDeleteStream(&s) != 0) return 5;
    if (rudNewStream(&s, last + 0x100000, 9) != RUD_RNG_ERROR_INVALID_BRNG) return 6;
    return reports().size() == 2 ? 0 : 7;
  });
  EXPECT_EQ(r.exit_code, 0) << r.out;
}

// ---- Extension blocks and the shared-block table ----------------------------------------------
void* bytes(std::size_t n, unsigned char fill) {
  void* p = tvx_malloc(n, 64);
  std::memset(p, fill, n);
  return p;
}

TEST(ExtensionBlocks, PrivateBlocksAndImageSize) {
  const Copy& c = copy_in_use();
  RudStreamPtr s = nullptr;
  ASSERT_EQ(rudNewStream(&s, RUD_BRNG_R250, 1), 0);
  EXPECT_EQ(rudGetStreamSize(s), 1024 + 8);
  void* first = bytes(100, 1);
  void* second = bytes(10, 2);
  ASSERT_EQ(c.ext_add(s, 7, nullptr, first, 100), 0);
  ASSERT_EQ(c.ext_add(s, 7, nullptr, second, 10), 0);
  ASSERT_EQ(c.ext_add(s, 9, nullptr, nullptr, 0), 0);
  EXPECT_EQ(c.ext_count(s), 3);
  EXPECT_EQ(c.ext_find(s, 7), second);  // the last added is found first
  EXPECT_EQ(c.ext_find(s, 8), nullptr);
  EXPECT_EQ(rudGetStreamSize(s), 1024 + 8 + (24 + 100) + (24 + 10) + 24);
  c.ext_remove(s, 7);
  EXPECT_EQ(c.ext_count(s), 1);
  EXPECT_EQ(c.ext_find(s, 7), nullptr);
  c.ext_add(s, 5, nullptr, bytes(8, 3), 8);
  EXPECT_EQ(rudDeleteStream(&s), 0);  // frees the remaining blocks (the leak checker watches)
}

TEST(ExtensionBlocks, SharedKeysAreCounted) {
  const Copy& c = copy_in_use();
  const int entries = c.shared_count();
  std::uint64_t key[2];
  c.make_key(77, key);
  EXPECT_FALSE(key[0] == 0 && key[1] == 0);
  EXPECT_EQ(key[1], 77u);
  EXPECT_EQ(c.refcount(key), rud::kKeyNotShared);
  RudStreamPtr a = nullptr, b = nullptr;
  ASSERT_EQ(rudNewStream(&a, RUD_BRNG_MCG31, 1), 0);
  ASSERT_EQ(rudNewStream(&b, RUD_BRNG_MCG31, 2), 0);
  void* table = bytes(64, 4);
  ASSERT_EQ(c.ext_add(a, 3, key, table, 64), 0);
  EXPECT_EQ(c.refcount(key), 1);
  // A second block with the key shares the bytes; the caller's own copy is not taken.
  void* duplicate = bytes(64, 5);
  ASSERT_EQ(c.ext_add(b, 3, key, duplicate, 64), 0);
  EXPECT_EQ(c.ext_find(b, 3), table);
  EXPECT_EQ(c.refcount(key), 2);
  tvx_free(duplicate);
  EXPECT_EQ(rudDeleteStream(&a), 0);
  EXPECT_EQ(c.refcount(key), 1);
  EXPECT_EQ(static_cast<unsigned char*>(c.ext_find(b, 3))[63], 4);
  EXPECT_EQ(rudDeleteStream(&b), 0);
  EXPECT_EQ(c.refcount(key), rud::kKeyNotShared);
  EXPECT_EQ(c.shared_count(), entries);
}

// The table takes 127 keys; a block with a further key stays private and is freed as such.
// Removing an entry moves the last one into its place, so every key stays findable.
TEST(ExtensionBlocks, FullSharedTableKeepsBlocksPrivate) {
  const ChildResult r = run_in_child({}, [] {
    const Copy& c = copy_in_use();
    RudStreamPtr s = nullptr;
    if (rudNewStream(&s, RUD_BRNG_MCG31, 1) != 0) return 1;
    std::vector<std::array<std::uint64_t, 2>> keys(130);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      keys[i] = {1000 + i, 1};
      if (c.ext_add(s, 1, keys[i].data(), bytes(16, 0), 16) != 0) return 2;
    }
    if (c.shared_count() != 127) return 3;
    if (c.refcount(keys[127].data()) != rud::kKeyNotShared) return 4;
    RudStreamPtr t = nullptr;
    if (rudNewStream(&t, RUD_BRNG_MCG31, 1) != 0) return 5;
    if (c.ext_add(t, 2, keys[0].data(), nullptr, 16) != 0 || c.refcount(keys[0].data()) != 2) {
      return 6;
    }
    if (rudDeleteStream(&s) != 0 || c.shared_count() != 1 || c.refcount(keys[0].data()) != 1) {
      return 7;
    }
    if (rudDeleteStream(&t) != 0 || c.shared_count() != 0) return 8;
    return 0;
  });
  EXPECT_EQ(r.exit_code, 0) << r.out;
}

// Streams on several threads share and release keys at once; the table ends as it began.
TEST(ExtensionBlocks, SharedTableUnderThreads) {
  const Copy& c = copy_in_use();
  const int entries = c.shared_count();
  std::uint64_t key[2];
  c.make_key(5, key);
  // One call first, so that the one-time set-up of the process (verbose level, frame slots) is
  // done before the threads start: the test is about the table.
  ASSERT_GE(rudGetNumRegBrngs(), 16);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&c, &key, t] {
      for (int i = 0; i < 200; ++i) {
        RudStreamPtr s = nullptr;
        ASSERT_EQ(rudNewStream(&s, RUD_BRNG_MCG59, static_cast<unsigned>(t * 1000 + i)), 0);
        void* mine = bytes(32, 6);
        ASSERT_EQ(c.ext_add(s, 11, key, mine, 32), 0);
        if (c.ext_find(s, 11) != mine) tvx_free(mine);  // someone else's bytes were shared
        std::uint64_t own[2] = {static_cast<std::uint64_t>(t) + 1, 1000000u + i};
        ASSERT_EQ(c.ext_add(s, 12, own, bytes(8, 7), 8), 0);
        ASSERT_EQ(rudDeleteStream(&s), 0);
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(c.refcount(key), rud::kKeyNotShared);
  EXPECT_EQ(c.shared_count(), entries);
}

// ---- Copies, leapfrog, skip-ahead and saved images of every generator ------------------------
// One row per generator of the catalogue, with the bytes that rudCopyStreamState copies (the row's
// seed words, not the whole record).
struct GeneratorRow {
  const char* name;
  int brng;
  std::size_t state_words_bytes;
};
const GeneratorRow kGenerators[] = {
    {"mcg31", RUD_BRNG_MCG31, 4},        {"r250", RUD_BRNG_R250, 1008},
    {"mrg32k3a", RUD_BRNG_MRG32K3A, 24}, {"mcg59", RUD_BRNG_MCG59, 8},
    {"ars5", RUD_BRNG_ARS5, 32},         {"philox4x32x10", RUD_BRNG_PHILOX4X32X10, 32},
    {"mt19937", RUD_BRNG_MT19937, 2500}, {"sfmt19937", RUD_BRNG_SFMT19937, 2500},
    {"mt2203", RUD_BRNG_MT2203, 280},
};
const unsigned int kSeeds[6] = {20240611u, 7u, 99u, 5u, 4000000000u, 3u};

// n raw words of the stream, as bytes (WordSize each).
std::vector<unsigned char> draw(RudStreamPtr s, int n) {
  RudBrngProperties p;
  EXPECT_EQ(rudGetBrngProperties(rudGetStreamStateBrng(s), &p), 0);
  std::vector<unsigned char> out(static_cast<std::size_t>(n * p.WordSize) + 16);
  EXPECT_EQ(p.iBRng(s, n, reinterpret_cast<unsigned int*>(out.data())), 0);
  out.resize(static_cast<std::size_t>(n * p.WordSize));
  return out;
}

RudStreamPtr seeded(const GeneratorRow& g) {
  RudStreamPtr s = nullptr;
  EXPECT_EQ(rudNewStreamEx(&s, g.brng, 6, kSeeds), 0);
  return s;
}

// Two private blocks, one of them empty, as a distribution would keep them.
void add_blocks(RudStreamPtr s) {
  const Copy& c = copy_in_use();
  ASSERT_EQ(c.ext_add(s, 21, nullptr, bytes(40, 0x5A), 40), 0);
  ASSERT_EQ(c.ext_add(s, 22, nullptr, nullptr, 0), 0);
}

// Files of this run's image tests, in a directory removed when the test program ends.
std::string temp_path(const std::string& leaf) {
  static const struct Dir {
    std::string path = testing::TempDir() + "tvx_images_" + std::to_string(getpid());
    Dir() { std::filesystem::create_directories(path); }
    ~Dir() { std::filesystem::remove_all(path); }
  } dir;
  return dir.path + "/" + leaf;
}

std::vector<char> image_of(RudStreamPtr s, unsigned char fill = 0xCA) {
  const int size = rudGetStreamSize(s);
  EXPECT_GT(size, 0);
  std::vector<char> image(static_cast<std::size_t>(size), static_cast<char>(fill));
  EXPECT_EQ(rudSaveStreamM(s, image.data()), 0);
  return image;
}

std::vector<char> file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST_F(Frames, CopiesOfEveryGenerator) {
  for (const GeneratorRow& g : kGenerators) {
    SCOPED_TRACE(g.name);
    RudStreamPtr original = seeded(g), copy = nullptr, copy2 = nullptr;
    add_blocks(original);
    draw(original, 17);
    ASSERT_EQ(rudCopyStream(&copy, original), 0);
    ASSERT_EQ(rudCopyStream(&copy2, copy), 0);
    const Copy& c = copy_in_use();
    EXPECT_EQ(c.ext_count(copy2), 2);
    EXPECT_NE(c.ext_find(copy2, 21), c.ext_find(original, 21));  // private bytes are copied
    EXPECT_EQ(std::memcmp(c.ext_find(copy2, 21), c.ext_find(original, 21), 40), 0);
    const auto expected = draw(original, 300);
    ASSERT_EQ(rudDeleteStream(&original), 0);
    EXPECT_EQ(draw(copy, 300), expected);
    EXPECT_EQ(draw(copy2, 300), expected);

    // rudCopyStreamState copies the row's seed words and nothing else of the record.
    RudStreamPtr target = seeded(g);
    RudBrngProperties p;
    ASSERT_EQ(rudGetBrngProperties(g.brng, &p), 0);
    auto* t = reinterpret_cast<unsigned char*>(target) + 16;
    const auto* from = reinterpret_cast<const unsigned char*>(copy) + 16;
    const std::size_t record = static_cast<std::size_t>(p.StreamStateSize) - 16;
    std::memset(t, 0xAB, record);
    ASSERT_EQ(rudCopyStreamState(target, copy), 0);
    EXPECT_EQ(std::memcmp(t, from, g.state_words_bytes), 0);
    for (std::size_t i = g.state_words_bytes; i < record; ++i) ASSERT_EQ(t[i], 0xAB) << i;
    EXPECT_EQ(c.ext_count(target), 2);
    EXPECT_EQ(rudCopyStreamState(target, target), 0);
    EXPECT_EQ(c.ext_count(target), 2);

    for (RudStreamPtr* s : {&copy, &copy2, &target}) EXPECT_EQ(rudDeleteStream(s), 0);
  }
  // Stream 1 of 3 and a skip of 1000 through the exports land where plain stepping does (what
  // each generator allows is tested per copy with the generators).
  RudStreamPtr plain = seeded(kGenerators[0]), part = seeded(kGenerators[0]),
               skipped = seeded(kGenerators[0]);
  const auto all = draw(plain, 1010);
  ASSERT_EQ(rudLeapfrogStream(part, 1, 3), 0);
  ASSERT_EQ(rudSkipAheadStream(skipped, 1000), 0);
  const auto leap = draw(part, 3), after = draw(skipped, 10);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(std::memcmp(&leap[4 * i], &all[4 + 12 * i], 4), 0);
  EXPECT_TRUE(std::equal(after.begin(), after.end(), all.begin() + 4000));
  for (RudStreamPtr* s : {&plain, &part, &skipped}) EXPECT_EQ(rudDeleteStream(s), 0);
  // Copies of different generators are not refused: the source's words, clipped to the record.
  RudStreamPtr small = nullptr, big = nullptr;
  ASSERT_EQ(rudNewStream(&small, RUD_BRNG_MCG31, 5), 0);
  ASSERT_EQ(rudNewStream(&big, RUD_BRNG_R250, 5), 0);
  EXPECT_EQ(rudCopyStreamState(small, big), 0);
  EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(small) + 16, reinterpret_cast<char*>(big) + 16, 8),
            0);
  EXPECT_TRUE(taken().empty());
  RudStreamPtr out = nullptr;
  EXPECT_EQ(rudCopyStream(&out, nullptr), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(rudCopyStream(nullptr, small), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(rudCopyStreamState(nullptr, small), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(rudCopyStreamState(small, nullptr), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(taken(), (std::vector<Report>{{"rudCopyStream", 1},
                                          {"rudCopyStream", 1},
                                          {"rudCopyStreamState", 1},
                                          {"rudCopyStreamState", 2}}));
  EXPECT_EQ(rudDeleteStream(&small), 0);
  EXPECT_EQ(rudDeleteStream(&big), 0);
}

// Draw, save to memory and to a file, draw on; each load continues with the same words and the
// same blocks. The memory image leaves the two reserved bytes as the buffer had them.
TEST_F(Frames, SaveAndLoadRoundTripOfEveryGenerator) {
  for (const GeneratorRow& g : kGenerators) {
    SCOPED_TRACE(g.name);
    RudStreamPtr s = seeded(g);
    add_blocks(s);
    draw(s, 37);
    const std::vector<char> image = image_of(s);
    const std::string path = temp_path(std::string(g.name) + ".img");
    ASSERT_EQ(rudSaveStreamF(s, path.c_str()), 0);
    const auto after = draw(s, 500);
    RudBrngProperties p;
    ASSERT_EQ(rudGetBrngProperties(g.brng, &p), 0);
    std::uint32_t head[6];
    std::memcpy(head, image.data(), sizeof head);
    EXPECT_EQ(head[0], 2u);
    EXPECT_EQ(head[1], 0x00474E52u);
    EXPECT_EQ(head[2], 24u);
    EXPECT_EQ(head[3], static_cast<std::uint32_t>(p.StreamStateSize - 16));
    EXPECT_EQ(head[4], 0xCACA0002u);
    EXPECT_EQ(static_cast<int>(head[5]), g.brng);
    std::vector<char> file = file_bytes(path);
    ASSERT_EQ(file.size(), image.size());
    EXPECT_EQ(file[18], 0);
    EXPECT_EQ(file[19], 0);
    file[18] = file[19] = static_cast<char>(0xCA);
    EXPECT_EQ(file, image);

    RudStreamPtr from_mem = nullptr, from_file = nullptr;
    ASSERT_EQ(rudLoadStreamM(&from_mem, image.data()), 0);
    ASSERT_EQ(rudLoadStreamF(&from_file, path.c_str()), 0);
    for (RudStreamPtr t : {from_mem, from_file}) {
      EXPECT_EQ(rudGetStreamStateBrng(t), g.brng);
      EXPECT_EQ(draw(t, 500), after);
      const Copy& c = copy_in_use();
      EXPECT_EQ(c.ext_count(t), 2);
      ASSERT_NE(c.ext_find(t, 21), nullptr);
      EXPECT_EQ(static_cast<unsigned char*>(c.ext_find(t, 21))[39], 0x5A);
      EXPECT_EQ(rudGetStreamSize(t), static_cast<int>(image.size()));
    }
    for (RudStreamPtr* t : {&s, &from_mem, &from_file}) EXPECT_EQ(rudDeleteStream(t), 0);
  }
  EXPECT_TRUE(taken().empty());
}

// The images of tests/data/images are the seed corpus of the loader's fuzzer: each is the image of
// a fixed stream, made again here, so that the corpus and the format can't drift apart. Saved by
// an earlier process, each loads here and continues as the stream made again.
// TVX_WRITE_IMAGES=<dir> writes them instead.
TEST(StreamImages, CheckedInImagesAreCurrent) {
  const char* write_to = std::getenv("TVX_WRITE_IMAGES");
  for (const GeneratorRow& g : kGenerators) {
    RudStreamPtr s = seeded(g), loaded = nullptr;
    add_blocks(s);
    draw(s, 10);
    const std::vector<char> image = image_of(s, 0);
    const std::string path = std::string(TVX_IMAGE_DIR "/") + g.name + ".img";
    if (write_to != nullptr) {
      std::ofstream(write_to + path.substr(path.rfind('/')), std::ios::binary)
          .write(image.data(), image.size());
    } else {
      EXPECT_EQ(file_bytes(path), image) << g.name;
      ASSERT_EQ(rudLoadStreamF(&loaded, path.c_str()), 0) << g.name;
      EXPECT_EQ(draw(loaded, 10000), draw(s, 10000)) << g.name;
      EXPECT_EQ(rudDeleteStream(&loaded), 0);
    }
    EXPECT_EQ(rudDeleteStream(&s), 0);
  }
}

// Damaged images: each gets its status, the out pointer stays null and nothing leaks.
TEST_F(Frames, DamagedImagesAreRefused) {
  RudStreamPtr s = seeded(kGenerators[2]);
  add_blocks(s);
  const std::vector<char> good = image_of(s, 0);
  const std::size_t state_end = 24 + 24;
  struct Case {
    const char* what;
    std::size_t offset;
    std::uint32_t value;
    int mem, file;
  };
  const Case cases[] = {
      {"magic", 4, 0x00474E53u, RUD_RNG_ERROR_BAD_MEM_FORMAT, RUD_RNG_ERROR_BAD_FILE_FORMAT},
      {"magic with a free high byte", 4, 0xFF474E52u, 0, 0},
      {"version 3", 0, 3u, RUD_RNG_ERROR_BAD_MEM_FORMAT, RUD_RNG_ERROR_BAD_FILE_VERSION},
      {"unknown generator", 20, 0x7FF00000u, RUD_RNG_ERROR_BAD_MEM_FORMAT,
       RUD_RNG_ERROR_BAD_FILE_FORMAT},
      {"generator not built", 20, RUD_BRNG_MT19937, RUD_RNG_ERROR_BAD_MEM_FORMAT,
       RUD_RNG_ERROR_BAD_FILE_FORMAT},
      {"state size", 12, 28u, RUD_RNG_ERROR_BAD_MEM_FORMAT, RUD_RNG_ERROR_BAD_FILE_FORMAT},
      {"header size", 8, 20u, RUD_RNG_ERROR_BAD_MEM_FORMAT, RUD_RNG_ERROR_BAD_FILE_FORMAT},
      {"state past its modulus", 24, 0xFFFFFFFFu, RUD_RNG_ERROR_BAD_MEM_FORMAT,
       RUD_RNG_ERROR_BAD_FILE_FORMAT},
      {"more blocks than the image holds", 16, 3u, RUD_RNG_ERROR_FILE_READ,
       RUD_RNG_ERROR_FILE_READ},
      {"block larger than the image", state_end + 20, 0x7FFFFFF0u, RUD_RNG_ERROR_FILE_READ,
       RUD_RNG_ERROR_FILE_READ},
  };
  const auto load_mem_bounded =
      std::array{rud_load_stream_mem_sse2, rud_load_stream_mem_sse2b, rud_load_stream_mem_sse42,
                 rud_load_stream_mem_avx2,
                 rud_load_stream_mem_avx512}[static_cast<std::size_t>(copy_in_use().index)];
  const std::string path = temp_path("damaged.img");
  const auto check = [&](const std::vector<char>& image, int mem, int file, bool unbounded) {
    RudStreamPtr t = reinterpret_cast<RudStreamPtr>(0x1);
    EXPECT_EQ(load_mem_bounded(&t, image.data(), image.size()), mem);
    EXPECT_EQ(t == nullptr, mem != 0);
    if (t != nullptr) rudDeleteStream(&t);
    if (unbounded) {
      t = reinterpret_cast<RudStreamPtr>(0x1);
      EXPECT_EQ(rudLoadStreamM(&t, image.data()), mem);
      if (t != nullptr) rudDeleteStream(&t);
    }
    std::ofstream(path, std::ios::binary).write(image.data(), image.size());
    t = reinterpret_cast<RudStreamPtr>(0x1);
    EXPECT_EQ(rudLoadStreamF(&t, path.c_str()), file);
    EXPECT_EQ(t == nullptr, file != 0);
    if (t != nullptr) rudDeleteStream(&t);
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.what);
    std::vector<char> image = good;
    std::memcpy(&image[k.offset], &k.value, 4);
    check(image, k.mem, k.file, k.mem != RUD_RNG_ERROR_FILE_READ);
  }
  // Cut short anywhere: in the header, the state, a block's head or its bytes.
  for (std::size_t cut : {0ul, 7ul, 23ul, 30ul, state_end + 3, state_end + 30, good.size() - 1}) {
    SCOPED_TRACE(cut);
    check(std::vector<char>(good.begin(), good.begin() + static_cast<long>(cut)),
          RUD_RNG_ERROR_FILE_READ, RUD_RNG_ERROR_FILE_READ, false);
  }
  // An R250 image whose positions are not 103 apart would make the generator run off its buffer.
  RudStreamPtr r = seeded(kGenerators[1]);
  std::vector<char> r250 = image_of(r, 0);
  const std::uint32_t i0 = 250;
  std::memcpy(&r250[24 + 1000], &i0, 4);
  check(r250, RUD_RNG_ERROR_BAD_MEM_FORMAT, RUD_RNG_ERROR_BAD_FILE_FORMAT, true);

  // Older images: a 20-byte header (version 1 with keys, version 0 without) are still read.
  const auto older = [&](std::uint32_t version, bool swapped) {
    std::string img;
    const auto append = [&img](const void* p, std::size_t n) {
      img.append(static_cast<const char*>(p), n);
    };
    const std::uint32_t w[2] = {swapped ? 0x00474E52u : version, swapped ? version : 0x00474E52u};
    const std::uint16_t sizes[4] = {20, 24, 2, 0};
    append(w, 8);
    append(sizes, 8);
    append(&good[20], 4);
    append(&good[24], 24);
    for (std::size_t at = state_end; at < good.size();) {  // blocks, without keys in version 0
      std::uint32_t size;
      std::memcpy(&size, &good[at + 20], 4);
      append(&good[at], 4);
      if (version != 0) append(&good[at + 4], 16);
      append(&good[at + 20], 4 + size);
      at += 24 + size;
    }
    return std::vector<char>(img.begin(), img.end());
  };
  const auto words_after_load = [](const std::vector<char>& img) {
    RudStreamPtr t = nullptr;
    EXPECT_EQ(rudLoadStreamM(&t, img.data()), 0);
    if (t == nullptr) return std::vector<unsigned char>();
    EXPECT_EQ(copy_in_use().ext_count(t), 2);
    auto w = draw(t, 20);
    rudDeleteStream(&t);
    return w;
  };
  const auto expected = words_after_load(good);
  EXPECT_EQ(words_after_load(older(1, false)), expected);
  EXPECT_EQ(words_after_load(older(0, false)), expected);
  // Swapped words: the first taken as the version is neither 0, 1 nor 2, so the blocks can't be
  // read.
  check(older(1, true), RUD_RNG_ERROR_FILE_READ, RUD_RNG_ERROR_FILE_READ, true);
  EXPECT_TRUE(taken().empty());

  // Arguments, a missing file, a name that can't be written.
  RudStreamPtr t = nullptr;
  EXPECT_EQ(rudLoadStreamF(&t, (path + ".missing").c_str()), RUD_RNG_ERROR_FILE_OPEN);
  EXPECT_EQ(rudSaveStreamF(s, "/nonexistent-dir/x.img"), RUD_RNG_ERROR_FILE_OPEN);
  EXPECT_EQ(rudSaveStreamF(s, testing::TempDir().c_str()), RUD_RNG_ERROR_FILE_OPEN);
  EXPECT_TRUE(taken().empty());
  EXPECT_EQ(rudSaveStreamF(s, nullptr), RUD_ERROR_BAD_ARGS);
  EXPECT_EQ(rudSaveStreamM(s, nullptr), RUD_ERROR_BAD_ARGS);
  EXPECT_EQ(rudLoadStreamF(&t, nullptr), RUD_ERROR_BAD_ARGS);
  EXPECT_EQ(rudLoadStreamM(&t, nullptr), RUD_ERROR_BAD_ARGS);
  EXPECT_EQ(rudLoadStreamM(nullptr, good.data()), RUD_ERROR_NULL_PTR);
  char buffer[64];
  EXPECT_EQ(rudSaveStreamM(nullptr, buffer), RUD_ERROR_NULL_PTR);
  EXPECT_EQ(taken(), (std::vector<Report>{{"rudSaveStreamF", 2},
                                          {"rudSaveStreamM", 2},
                                          {"rudLoadStreamF", 2},
                                          {"rudLoadStreamM", 2},
                                          {"rudLoadStreamM", 1},
                                          {"rudSaveStreamM", 1}}));
  // The lower-case forms take the name's length.
  const std::string named = path + "-and-more";
  ASSERT_EQ(rudsavestreamf(&s, named.c_str(), static_cast<int>(path.size())), 0);
  ASSERT_EQ(rudloadstreamf(&t, path.c_str(), -1), 0);
  EXPECT_EQ(draw(t, 5), draw(s, 5));
  for (RudStreamPtr* x : {&s, &r, &t}) EXPECT_EQ(rudDeleteStream(x), 0);
}

// A save that can't be written whole leaves the old file as it was and no other file behind.
TEST(StreamImages, FailedWriteLeavesTheOldFile) {
  const std::string path = temp_path("kept.img");
  const ChildResult r = run_in_child({}, [&] {
    RudStreamPtr small = nullptr, big = nullptr;
    if (rudNewStream(&small, RUD_BRNG_MCG31, 1) != 0 || rudSaveStreamF(small, path.c_str()) != 0) {
      return 1;
    }
    if (rudNewStream(&big, RUD_BRNG_R250, 1) != 0) return 2;
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {100, 100};
    setrlimit(RLIMIT_FSIZE, &limit);
    if (rudSaveStreamF(big, path.c_str()) != RUD_RNG_ERROR_FILE_WRITE) return 3;
    rudDeleteStream(&small);
    rudDeleteStream(&big);
    return 0;
  });
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(file_bytes(path).size(), 24u + 8u);
  for (const auto& e :
       std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
    EXPECT_EQ(e.path().string().find("kept.img.tvx-"), std::string::npos) << e.path();
  }
}

// A saved shared block gets its key back: while the key is live the load shares the live bytes.
TEST(StreamImages, SharedBlocksComeBackShared) {
  const Copy& c = copy_in_use();
  std::uint64_t key[2];
  c.make_key(31, key);
  RudStreamPtr s = nullptr, t = nullptr, u = nullptr;
  ASSERT_EQ(rudNewStream(&s, RUD_BRNG_MCG59, 1), 0);
  ASSERT_EQ(c.ext_add(s, 4, key, bytes(64, 9), 64), 0);
  std::vector<char> image = image_of(s);
  ASSERT_EQ(rudCopyStream(&t, s), 0);
  EXPECT_EQ(c.refcount(key), 2);
  ASSERT_EQ(rudLoadStreamM(&u, image.data()), 0);
  EXPECT_EQ(c.refcount(key), 3);
  EXPECT_EQ(c.ext_find(u, 4), c.ext_find(s, 4));
  for (RudStreamPtr* x : {&s, &t, &u}) EXPECT_EQ(rudDeleteStream(x), 0);
  EXPECT_EQ(c.refcount(key), rud::kKeyNotShared);
  // Not live any more: the load brings the bytes back under the key.
  ASSERT_EQ(rudLoadStreamM(&u, image.data()), 0);
  EXPECT_EQ(c.refcount(key), 1);
  EXPECT_EQ(static_cast<unsigned char*>(c.ext_find(u, 4))[63], 9);
  EXPECT_EQ(rudDeleteStream(&u), 0);
}

// ---- Copy choice and verbose line -------------------------------------------------------------
// Whatever CPU type the runtime settles on (the debug override included, when the test runs in a
// process of its own), the exports take the copy of the map 0,1,0,0,0,2,2,3,3,4 and produce the
// same words.
TEST(CopyChoice, FollowsTheCpuTypeMap) {
  const int expected_copy[10] = {0, 1, 0, 0, 0, 2, 2, 3, 3, 4};
  std::string first;
  for (const char* type : {"0", "1", "2", "5", "6", "7", "8", "9"}) {
    if (const char* missing = forced_type_lacks(std::atoi(type))) {
      std::printf("CPU type %s not forced: CPU lacks %s\n", type, missing);
      continue;
    }
    const ChildResult r = run_in_child({{"TVX_KAZ_DEBUG_CPU_TYPE", type}}, [&] {
      const int cpu = tvx_rud_cpu_type();
      if (cpu < 0 || cpu > 9) return 1;
      const int number = rudRegisterBrng(&kCounter);
      if (number < 0) return 2;
      for (const Copy& c : all_copies()) {
        if (!lacks(c) && c.num_rows() != (c.index == expected_copy[cpu] ? 17 : 16)) return 3;
      }
      RudStreamPtr s = nullptr;
      if (rudNewStream(&s, RUD_BRNG_MRG32K3A, 12345) != 0) return 4;
      RudBrngProperties p;
      rudGetBrngProperties(RUD_BRNG_MRG32K3A, &p);
      std::vector<unsigned int> w(100000);
      p.iBRng(s, static_cast<int>(w.size()), w.data());
      Digest d;
      for (unsigned int x : w) d.add(x);
      std::printf("%016llx\n", static_cast<unsigned long long>(d.h));
      return rudDeleteStream(&s) == 0 ? 0 : 5;
    });
    ASSERT_EQ(r.exit_code, 0) << "CPU type " << type;
    if (first.empty()) first = r.out;
    EXPECT_EQ(r.out, first) << "CPU type " << type;
  }
}

TEST(Verbose, OneLinePerCallWithItsArguments) {
  // The level is read once per process and a forked child inherits it, so the child also sets
  // it through its address.
  const ChildResult r = run_in_child({{"TVX_VERBOSE", "1"}}, [] {
    *tvx_verbose_mode() = 1;
    RudStreamPtr s = nullptr;
    rudNewStream(&s, RUD_BRNG_MCG31, 7);
    std::printf("stream=%p\n", static_cast<void*>(s));
    rudSkipAheadStream(s, 123);
    rudLeapfrogStream(s, 1, 2);
    rudGetNumRegBrngs();
    rudNewStream(&s, -1, 7);  // refused by the frame: no verbose line
    rudDeleteStream(&s);
    return 0;
  });
  ASSERT_EQ(r.exit_code, 0);
  const std::string& out = r.out;
  const auto at = out.find("stream=");
  ASSERT_NE(at, std::string::npos);
  const std::string stream = out.substr(at + 7, out.find('\n', at) - at - 7);
  for (const std::string& text :
       {std::string("TVX_VERBOSE rudNewStream(0x"), std::string(",1048576,7)"),
        "TVX_VERBOSE rudSkipAheadStream(" + stream + ",123)",
        "TVX_VERBOSE rudLeapfrogStream(" + stream + ",1,2)", std::string("rudGetNumRegBrngs()"),
        std::string("TVX_VERBOSE rudDeleteStream(0x")}) {
    EXPECT_NE(out.find(text), std::string::npos) << text << "\n" << out;
  }
  EXPECT_EQ(out.find("rudNewStream(0x", out.find("rudNewStream(0x") + 1), std::string::npos)
      << "a call refused by its checks printed a line\n"
      << out;
  const ChildResult quiet = run_in_child({{"TVX_VERBOSE", nullptr}}, [] {
    *tvx_verbose_mode() = 0;
    RudStreamPtr s = nullptr;
    rudNewStream(&s, RUD_BRNG_MCG31, 7);
    return rudDeleteStream(&s);
  });
  EXPECT_EQ(quiet.exit_code, 0);
  EXPECT_EQ(quiet.out.find("TVX_VERBOSE"), std::string::npos);
}

}  // namespace
}  // namespace tvx::test
