// The reproducibility word: parsing TVX_CBWR, the check of a branch against the processor, and
// the names printed for branches.
#include <gtest/gtest.h>

#include <string>

#include "fake_cpu.h"

namespace tvx::test {
namespace {

class Cbwr : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const auto& [name, value] : clean_env()) unsetenv(name.c_str());
  }
  void TearDown() override { FakeCpu::uninstall(); }
};

// The word parsed from `value` (null: unset) on `cpu`, with anything printed before it.
std::string parsed(const FakeCpu& cpu, const char* value, const char* home = "TarvexTestCo") {
  const auto r = on_cpu(
      cpu, {{"TVX_CBWR", value}},
      [] {
        std::printf("0x%x\n", static_cast<unsigned>(tvx_cbwr_get(-1)));
        return 0;
      },
      home);
  return r.out;
}

TEST_F(Cbwr, ParsedWords) {
  const FakeCpu avx2 = FakeCpu().avx2();
  const FakeCpu avx512 = FakeCpu().avx512();
  const FakeCpu full = FakeCpu().full();
  const FakeCpu sse42 = FakeCpu().sse42();
  const FakeCpu sse3 = FakeCpu().sse3();
  const std::string too_long(128, 'A');
  struct Case {
    const FakeCpu& cpu;
    const char* value;
    const char* word;
  };
  const Case cases[] = {
      {avx2, nullptr, "0x1"},
      {avx2, "", "0x1"},
      {avx2, too_long.c_str(), "0x1"},
      {avx2, "AUTO", "0x2"},
      {avx2, "AUTO,STRICT", "0x10002"},
      {avx2, "BRANCH=AVX2,STRICT", "0x1000a"},
      {avx2, "AVX2, STRICT", "0x1000a"},
      {avx2, "AVX2,,STRICT", "0x1000a"},
      {avx2, "AVX2 ,STRICT", "0x2"},  // the space before the comma stays in the word
      {avx2, "AVX2STRICT", "0x2"},
      {avx2, "STRICT", "0x2"},  // not longer than the suffix: an unknown word
      {avx2, ",STRICT", "0x2"},
      {avx2, "AVX512", "0x2"},
      {avx2, "AVX512,STRICT", "0x10002"},  // the fallback keeps the strict bit
      {avx2, "avx2", "0x2"},
      {avx2, "BRANCH=", "0x2"},
      {avx2, "COMPATIBLE", "0x3"},
      {avx2, "SSE2", "0x4"},
      {avx2, "SSE3", "0x4"},
      {avx2, "SSSE3", "0x4"},
      {avx2, "SSE4_1", "0x7"},
      {avx2, "AVX", "0x8"},
      {avx2, "AVX512_PLT", "0xa"},
      {avx2, "AVX512_PLT_E1", "0xa"},
      {avx512, "AVX512", "0xc"},
      {avx512, "AVX512_E1", "0x2"},
      {full, "AVX512_E1", "0xe"},
      {sse42, "SSE4_2", "0x8"},
      {sse42, "AVX2", "0x2"},
      {sse3, "SSE4_1", "0x2"},
      {sse3, "SSE2,STRICT", "0x10004"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(parsed(c.cpu, c.value), std::string(c.word) + "\n")
        << (c.value ? c.value : "(unset)");
  }
}

TEST_F(Cbwr, OtherVendorKeepsOnlyAutoAndCompatible) {
  const FakeCpu other = FakeCpu("OtherVendor!").full();
  const std::pair<const char*, const char*> cases[] = {{"AUTO", "0x2\n"},
                                                       {"COMPATIBLE,STRICT", "0x10003\n"},
                                                       {"SSE2", "0x2\n"},
                                                       {"AVX2", "0x2\n"},
                                                       {"AVX512_E1", "0x2\n"}};
  for (const auto& [value, word] : cases) EXPECT_EQ(parsed(other, value), word) << value;
}

TEST_F(Cbwr, GetterArgument) {
  const auto r = on_cpu(FakeCpu().avx2(), {{"TVX_CBWR", "AVX2,STRICT"}}, [] {
    std::printf("%d %d %d %d\n", tvx_cbwr_get(0), tvx_cbwr_get(2), tvx_cbwr_get(1),
                tvx_cbwr_get(-1));
    return 0;
  });
  EXPECT_EQ(r.out, "-2 -2 10 65546\n");
}

TEST_F(Cbwr, CheckOfABranch) {
  FakeCpu highest12 = FakeCpu().avx512();  // raw class 7
  highest12.install();
  EXPECT_EQ(tvx_cbwr_check(12), 0);
  EXPECT_EQ(tvx_cbwr_check(11), -3);
  EXPECT_EQ(tvx_cbwr_check(13), -3);  // above the highest
  EXPECT_EQ(tvx_cbwr_check(14), -3);
  EXPECT_EQ(tvx_cbwr_check(15), -2);  // not a branch, but not "above" either
  EXPECT_EQ(tvx_cbwr_check(1), -2);
  EXPECT_EQ(tvx_cbwr_check(0x10004), 0);
  EXPECT_EQ(tvx_cbwr_check(0x20004), -3);

  FakeCpu highest14 = FakeCpu().avx512().vnni();  // raw class 9
  highest14.install();
  EXPECT_EQ(tvx_cbwr_check(14), 0);
  EXPECT_EQ(tvx_cbwr_check(11), -3);
  EXPECT_EQ(tvx_cbwr_check(13), -3);
  EXPECT_EQ(tvx_cbwr_check(10), 0);

  FakeCpu other = FakeCpu("OtherVendor!").full();
  other.install();
  EXPECT_EQ(tvx_cbwr_check(3), 0);
  EXPECT_EQ(tvx_cbwr_check(4), -3);
  EXPECT_EQ(tvx_cbwr_check(16), -2);
}

TEST_F(Cbwr, RetiredBranchesWarn) {
  const auto r = on_cpu(FakeCpu().full(), {}, [] {
    std::printf("%d\n", tvx_cbwr_check(6));
    std::printf("%d\n", tvx_cbwr_check(9));
    return 0;
  });
  EXPECT_EQ(
      r.out,
      "Orvane Tarvex WARNING: Support of Orvane(R) Supplemental Streaming SIMD Extensions 3 "
      "(Orvane(R) SSSE3) enabled only processors has been deprecated. Tarvex Math Library "
      "will use Orvane(R) Streaming SIMD 2 Extensions (Orvane(R) SSE2) instructions "
      "instead.\n0\n"
      "Orvane Tarvex WARNING: Support of Orvane(R) Advanced Vector Extensions (Orvane(R) "
      "AVX) enabled only processors has been deprecated. Tarvex Math Library will use "
      "Orvane(R) Streaming SIMD Extensions 4.2 (Orvane(R) SSE4.2) instructions instead.\n0\n");
}

TEST_F(Cbwr, BranchNames) {
  const char* expected[] = {"?0",     "OFF",    "AUTO",   "COMPATIBLE", "SSE2", "?5",
                            "SSSE3",  "SSE4_1", "SSE4_2", "AVX",        "AVX2", "?b",
                            "AVX512", "?d",     "?e",     "?f"};
  char buffer[16];
  for (int code = 0; code < 16; ++code) {
    EXPECT_STREQ(tvx_cbwr_branch_name(code, buffer, sizeof buffer), expected[code]);
  }
  EXPECT_STREQ(tvx_cbwr_branch_name(0x1000a, buffer, sizeof buffer), "?1000a");
  char small[4];
  EXPECT_STREQ(tvx_cbwr_branch_name(3, small, sizeof small), "COM");
}

}  // namespace
}  // namespace tvx::test
