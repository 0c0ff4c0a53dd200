// Processor detection: the feature word, classification, the instruction limit, the debug
// override and the reproducibility word, on synthetic processors and on this machine.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "fake_cpu.h"
#include "runtime/report.h"

namespace tvx::test {
namespace {

class Detection : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const auto& [name, value] : clean_env()) unsetenv(name.c_str());
  }
  void TearDown() override { FakeCpu::uninstall(); }
};
using Cbwr = Detection;

constexpr const char* kLimit = "TVX_ENABLE_INSTRUCTIONS";
constexpr const char* kCbwr = "TVX_CBWR";
constexpr const char* kDebug = "TVX_KAZ_DEBUG_CPU_TYPE";
constexpr const char* kAvxWarning =
    "Orvane Tarvex WARNING: Support of Orvane(R) Advanced Vector Extensions (Orvane(R) AVX) "
    "enabled only processors has been deprecated. Tarvex Math Library will use Orvane(R) "
    "Streaming SIMD Extensions 4.2 (Orvane(R) SSE4.2) instructions instead.\n";

// ---- Feature word ---------------------------------------------------------------------------

TEST_F(Detection, ThisMachineAgreesWithTheCompilerAndGetsItsBestVariant) {
  __builtin_cpu_init();
  const std::pair<int, bool> checks[] = {
      {TVX_FEAT_SSE3, __builtin_cpu_supports("sse3")},
      {TVX_FEAT_SSSE3, __builtin_cpu_supports("ssse3")},
      {TVX_FEAT_SSE4_2, __builtin_cpu_supports("sse4.2")},
      {TVX_FEAT_PCLMULQDQ, __builtin_cpu_supports("pclmul")},
      {TVX_FEAT_AVX, __builtin_cpu_supports("avx")},
      {TVX_FEAT_FMA, __builtin_cpu_supports("fma")},
      {TVX_FEAT_AVX2, __builtin_cpu_supports("avx2")},
      {TVX_FEAT_BMI, __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2")},
      {TVX_FEAT_AVX512F, __builtin_cpu_supports("avx512f")},
      {TVX_FEAT_AVX512DQ, __builtin_cpu_supports("avx512dq")},
      {TVX_FEAT_AVX512BW, __builtin_cpu_supports("avx512bw")},
      {TVX_FEAT_AVX512VL, __builtin_cpu_supports("avx512vl")},
      {TVX_FEAT_AVX512_VNNI, __builtin_cpu_supports("avx512vnni")},
      {TVX_FEAT_VAES, __builtin_cpu_supports("vaes")},
      {TVX_FEAT_VPCLMULQDQ, __builtin_cpu_supports("vpclmulqdq")},
  };
  for (const auto& [bit, expected] : checks) {
    EXPECT_EQ(tvx_cpu_has_feature(bit), expected ? 1 : 0) << tvx_cpu_feature_name(bit);
  }
  EXPECT_EQ(tvx_cpu_features[0] & 1u, 1u);

  const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
  const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  const int variant = avx512 ? 5 : avx2 ? 3 : __builtin_cpu_supports("sse4.2") ? 2 : 0;
  EXPECT_EQ(run_in_child(clean_env(), [] { return tvx_kaz_variant_index(); }).exit_code, variant);
}

TEST_F(Detection, FeatureTableNamesAndBits) {
  std::set<int> bits;
  std::set<std::string> names;
  for (int i = 0; i < tvx_cpu_feature_count(); ++i) {
    const tvx_cpu_feature_row* row = tvx_cpu_feature_at(i);
    std::string lower = row->name;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(lower, row->lower_name);
    EXPECT_TRUE(bits.insert(row->bit).second) << row->name;
    EXPECT_TRUE(names.insert(row->name).second) << row->name;
    EXPECT_EQ(tvx_cpu_feature_bit(row->lower_name), row->bit);
    EXPECT_STREQ(tvx_cpu_feature_name(row->bit), row->name);
  }
  // Rows whose bit does not follow the row before, and the two ends.
  std::istringstream fixed(
      "avx 16 f16c 15 avx512f 27 avx512dq 24 ptwrite 25 avx512er 32 avx512_vp2intersect 56 "
      "avx512_fp16 60 cldemote 64 amx-tile 71 pbndkb 96");
  int rows = 0;
  for (std::string name; fixed >> name; ++rows) {
    int bit = -2;
    fixed >> bit;
    EXPECT_EQ(tvx_cpu_feature_bit(name.c_str()), bit) << name;
  }
  EXPECT_EQ(rows, 11);
  EXPECT_EQ(tvx_cpu_feature_bit("AVX2"), -1);
  EXPECT_EQ(tvx_cpu_feature_at(tvx_cpu_feature_count()), nullptr);
}

// Vector features count only with the operating system's state enabled, and a group only whole.
TEST_F(Detection, FeaturesNeedOsStateAndWholeGroups) {
  const struct {
    FakeCpu cpu;
    const char* features;  // +name: reported, -name: not reported
    int raw;
    bool reads_xcr0;
  } cases[] = {
      {FakeCpu().avx512().xcr0(0x7), "+avx2 -avx512f -avx512vl", 5, true},  // only YMM state
      // Without OSXSAVE, XGETBV must not run and nothing VEX-encoded counts.
      {FakeCpu().avx512().clear(1, 0, R::ecx, 27), "-avx -fma", 3, false},
      {FakeCpu().avx512().clear(0x80000001u, 0, R::ecx, 5), "-bmi -lzcnt", 3, true},
      {FakeCpu().avx2(), "+bmi +lzcnt", 5, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.features);
    const int calls = FakeCpu::xgetbv_calls();
    c.cpu.install();
    std::istringstream words(c.features);
    for (std::string w; words >> w;) {
      const int bit = tvx_cpu_feature_bit(w.c_str() + 1);
      ASSERT_GE(bit, 0) << w;
      EXPECT_EQ(tvx_cpu_has_feature(bit), w[0] == '+' ? 1 : 0) << w;
    }
    int fatal = 0;
    EXPECT_EQ(tvx_serv_cpu_classify(&fatal), c.raw);
    EXPECT_EQ(FakeCpu::xgetbv_calls() != calls, c.reads_xcr0);
  }
}

TEST_F(Detection, IsaDisableListSkipsEmptyAndUnknownNames) {
  const FakeCpu cpu = FakeCpu().avx512().vnni();
  auto r = on_cpu(cpu, {{"ORVANE_ISA_DISABLE", ",,avx512_vnni,,no_such,AVX2,generic_ia32,"}}, [] {
    std::printf("%d%d%d%d %s\n", tvx_cpu_has_feature(TVX_FEAT_AVX512_VNNI),
                tvx_cpu_has_feature(TVX_FEAT_AVX2), tvx_cpu_has_feature(TVX_FEAT_AVX512F),
                tvx_cpu_has_feature(TVX_FEAT_GENERIC_IA32), detection_summary().c_str());
    return 0;
  });
  // VNNI cleared (class 7, not 9); the upper-case name is not a key; bit 0 always stays.
  EXPECT_EQ(r.out, "0111 7 7 9 5 9 0x1 -1\n");
}

// ---- Classification and the three results --------------------------------------------------

TEST_F(Detection, ClassesOfSyntheticProcessors) {
  struct Case {
    const char* what;
    FakeCpu cpu;
    int raw, base, type, variant, rud_copy;
  };
  const Case cases[] = {
      {"sse3", FakeCpu().sse3(), 0, 0, 0, 0, 0},
      {"ssse3 only", FakeCpu().set(1, 0, R::ecx, {9}), 0, 0, 0, 0, 0},
      {"sse4.2", FakeCpu().sse42(), 3, 3, 5, 2, 2},
      {"avx without avx2", FakeCpu().avx(), 3, 3, 5, 2, 2},
      {"avx2 group", FakeCpu().avx2(), 5, 5, 7, 3, 3},
      {"avx2 + avx-vnni", FakeCpu().avx2().avx_vnni(), 15, 5, 7, 3, 3},
      {"avx-512 group", FakeCpu().avx512(), 7, 7, 9, 5, 4},
      {"+ vnni", FakeCpu().avx512().vnni(), 9, 7, 9, 5, 4},
      {"+ vaes", FakeCpu().avx512().vnni().vaes(), 10, 7, 9, 5, 4},
      {"+ bf16", FakeCpu().avx512().vaes().bf16(), 12, 7, 9, 5, 4},
      {"+ fp16", FakeCpu().avx512().bf16().fp16(), 14, 7, 9, 5, 4},
      {"everything", FakeCpu().full(), 16, 7, 9, 5, 4},
      {"avx-vnni is ignored with avx-512", FakeCpu().avx512().avx_vnni(), 7, 7, 9, 5, 4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    c.cpu.install();
    int fatal = 5;
    EXPECT_EQ(tvx_serv_cpu_classify(&fatal), c.raw);
    EXPECT_EQ(fatal, 0);
    EXPECT_EQ(tvx_serv_get_cpu_type(), c.base);
    EXPECT_EQ(tvx_serv_get_kaz_cpu_type(), c.type);
    EXPECT_EQ(tvx_kaz_variant_index(), c.variant);
    EXPECT_EQ(tvx_rud_cpu_type(), c.type);
    EXPECT_EQ(tvx_rud_variant_of_cpu_type(tvx_rud_cpu_type()), c.rud_copy);
  }
}

TEST_F(Detection, OtherVendorRunsBaseCodeWhateverItHas) {
  const FakeCpu cpu = FakeCpu("OtherVendor!").full();
  cpu.install("TarvexTestCo");
  EXPECT_EQ(tvx_serv_has_home_vendor(), 0);
  EXPECT_TRUE(tvx_cpu_has_feature(TVX_FEAT_AVX512F));
  EXPECT_EQ(tvx_kaz_variant_index(), 0);
  // An empty home list makes every vendor home.
  cpu.install("");
  EXPECT_EQ(tvx_serv_has_home_vendor(), 1);
  EXPECT_EQ(tvx_kaz_variant_index(), 5);
  cpu.install("GenuineTest1OtherVendor!");
  EXPECT_EQ(tvx_serv_has_home_vendor(), 1);
}

TEST_F(Detection, BelowSse3EndsTheProcessThroughTheExitHook) {
  const std::string lines =
      "Orvane Tarvex FATAL ERROR: This system does not meet the minimum requirements for use of "
      "the Orvane(R) Tarvex Library.\nThe processor must support the Orvane(R) Streaming SIMD 3 "
      "Extensions (Orvane(R) SSE3) instructions.\n";
  const FakeCpu sse2 = FakeCpu();
  auto r = on_cpu(sse2, {}, [] {
    tvx_set_exit_hook([](int code) {
      std::printf("hook %d\n", code);
      std::fflush(stdout);
      _exit(40 + code);
    });
    std::printf("variant %d\n", tvx_kaz_variant_index());
    return 0;
  });
  EXPECT_EQ(r.exit_code, 41);
  EXPECT_EQ(r.out, lines + "hook 1\n");
  r = on_cpu(sse2, {}, [] { return tvx_rud_cpu_type() + 100; });
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.out, lines);
}

// ---- The instruction limit, the debug override and a pinned branch, as detection applies them --

TEST_F(Detection, SummaryUnderTheEnvironment) {
  const FakeCpu full = FakeCpu().full(), avx2 = FakeCpu().avx2(),
                other = FakeCpu("OtherVendor!").full();
  struct Case {
    FakeCpu cpu;
    Env env;
    const char* summary;
    const char* warning = "";
  };
  const Case cases[] = {
      // The limit caps the class; names are exact and case-sensitive.
      {full, {{kLimit, "SSE4_2"}}, "3 3 5 2 5 0x1 0"},
      {full, {{kLimit, "AVX2"}}, "5 5 7 3 7 0x1 2"},
      {full, {{kLimit, "AVX2_E1"}}, "15 5 7 3 7 0x1 10"},
      {full, {{kLimit, "AVX512"}}, "7 7 9 5 9 0x1 4"},
      {full, {{kLimit, "AVX512_E1"}}, "9 7 9 5 9 0x1 6"},
      {full, {{kLimit, "AVX512_E2"}}, "10 7 9 5 9 0x1 7"},
      {full, {{kLimit, "AVX512_E3"}}, "12 7 9 5 9 0x1 8"},
      {full, {{kLimit, "AVX512_E4"}}, "14 7 9 5 9 0x1 9"},
      {full, {{kLimit, "AVX512_E5"}}, "16 7 9 5 9 0x1 11"},
      {full, {{kLimit, "avx2"}}, "16 7 9 5 9 0x1 -1"},
      {full, {{kLimit, "AVX2 "}}, "16 7 9 5 9 0x1 -1"},
      {full, {{kLimit, ""}}, "16 7 9 5 9 0x1 -1"},
      // A limit the processor cannot honour is ignored: AVX512_E2 asks for VAES.
      {FakeCpu().avx512().vnni().bf16(), {{kLimit, "AVX512_E2"}}, "12 7 9 5 9 0x1 7"},
      // "AVX" warns whether or not the processor has AVX; an AVX-only processor is silent.
      {FakeCpu().sse42(), {{kLimit, "AVX"}}, "3 3 5 2 5 0x1 1", kAvxWarning},
      {full, {{kLimit, "AVX"}}, "3 3 5 2 5 0x1 1", kAvxWarning},
      {FakeCpu().avx(), {}, "3 3 5 2 5 0x1 -1"},
      // Another vendor parses the limit, but it changes nothing and "AVX" does not warn.
      {other, {{kLimit, "SSE4_2"}}, "0 0 0 0 0 0x1 0"},
      {other, {{kLimit, "AVX"}}, "0 0 0 0 0 0x1 1"},
      {other, {{kLimit, "AVX512"}}, "0 0 0 0 0 0x1 4"},
      {FakeCpu().avx512().vnni(), {{"ORVANE_ISA_DISABLE", "avx2"}}, "3 3 5 2 5 0x1 -1"},
      // The debug override is a variant for vector code and a CPU type for random code; it never
      // touches the detected CPU type. Two digits at most, then anything; 8 is not a type.
      {full, {{kDebug, "3"}}, "16 7 9 3 3 0x1 -1"},
      {full, {{kDebug, "07"}}, "16 7 9 7 7 0x1 -1"},
      {full, {{kDebug, "9"}}, "16 7 9 9 9 0x1 -1"},
      {full, {{kDebug, "0"}}, "16 7 9 0 0 0x1 -1"},
      {full, {{kDebug, "3xy"}}, "16 7 9 3 3 0x1 -1"},
      {full, {{kDebug, "8"}}, "16 7 9 5 9 0x1 -1"},
      {full, {{kDebug, "3x"}}, "16 7 9 5 9 0x1 -1"},
      {full, {{kDebug, "12"}}, "16 7 9 5 9 0x1 -1"},
      {full, {{kDebug, "x3"}}, "16 7 9 5 9 0x1 -1"},
      {full, {{kDebug, "08"}}, "16 7 9 5 9 0x1 -1"},
      // A pinned branch gives its CPU type.
      {full, {{kCbwr, "COMPATIBLE"}}, "16 0 2 0 2 0x3 -1"},
      {full, {{kCbwr, "SSE4_1"}}, "16 0 0 0 0 0x7 -1"},
      {full, {{kCbwr, "AVX"}}, "16 3 5 2 5 0x8 -1"},
      {full, {{kCbwr, "BRANCH=AVX2,STRICT"}}, "16 5 7 3 7 0x1000a -1"},
      {full, {{kCbwr, "AVX512_E1"}}, "16 7 9 5 9 0xe -1"},
      // A branch this processor cannot run falls back to AUTO.
      {avx2, {{kCbwr, "AVX512"}}, "5 5 7 3 7 0x2 -1"},
      // Another vendor runs only AUTO and COMPATIBLE.
      {other, {{kCbwr, "AVX2"}}, "0 0 0 0 0 0x2 -1"},
      {other, {{kCbwr, "COMPATIBLE"}}, "0 0 2 0 2 0x3 -1"},
      // The limit number is compared with the branch level as it stands: AVX512 (4) is below the
      // AVX2 level (5) and the processor has AVX, so classification under the limit decides.
      {full, {{kCbwr, "AVX2"}, {kLimit, "AVX512"}}, "7 7 9 5 9 0xa 4"},
      {full, {{kCbwr, "AVX2"}, {kLimit, "AVX2_E1"}}, "15 5 7 3 7 0xa 10"},
      {full, {{kCbwr, "SSE4_2"}, {kLimit, "AVX2"}}, "5 3 5 2 5 0x8 2"},
      // The debug override still beats a pinned branch.
      {full, {{kCbwr, "COMPATIBLE"}, {kDebug, "1"}}, "16 0 2 1 1 0x3 -1"},
  };
  for (const Case& c : cases) {
    const auto r = detect_on(c.cpu, c.env);
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out, std::string(c.warning) + c.summary + "\n") << "row " << &c - cases;
  }
}

TEST_F(Detection, ImpossibleBranchWarnsAndClassifies) {
  for (std::uint32_t word : {0u, 11u, 13u, 15u}) {
    const auto r = on_cpu(FakeCpu().avx2(), {}, [word] {
      tvx_cbwr_test_set(word);
      std::printf("type=%d\n", tvx_serv_get_kaz_cpu_type());
      return 0;
    });
    EXPECT_EQ(r.out,
              "Orvane Tarvex WARNING: incorrect conditional numerical reproducibility mode, "
              "TVX_CBWR_AUTO is set\ntype=7\n")
        << word;
  }
}

// ---- The reproducibility word ---------------------------------------------------------------

TEST_F(Cbwr, ParsedWords) {
  using Words = std::vector<std::pair<const char*, const char*>>;  // value (null: unset), word
  auto expect_words = [](const FakeCpu& cpu, const Words& words) {
    for (const auto& [value, word] : words) {
      const auto r = on_cpu(cpu, {{kCbwr, value}}, [] {
        return std::printf("0x%x\n", static_cast<unsigned>(tvx_cbwr_get(-1))) < 0;
      });
      EXPECT_EQ(r.out, std::string(word) + "\n") << (value ? value : "(unset)");
    }
  };
  // A space before the comma stays in the word; "STRICT" alone is not longer than the suffix and
  // so an unknown word; a branch the processor lacks falls back to AUTO, keeping the strict bit.
  const std::string too_long(128, 'A');
  const Words avx2 = {{nullptr, "0x1"},
                      {"", "0x1"},
                      {"AUTO", "0x2"},
                      {"AUTO,STRICT", "0x10002"},
                      {"BRANCH=AVX2,STRICT", "0x1000a"},
                      {"AVX2, STRICT", "0x1000a"},
                      {"AVX2,,STRICT", "0x1000a"},
                      {"AVX2 ,STRICT", "0x2"},
                      {"AVX2STRICT", "0x2"},
                      {"STRICT", "0x2"},
                      {",STRICT", "0x2"},
                      {"AVX512", "0x2"},
                      {"AVX512,STRICT", "0x10002"},
                      {"avx2", "0x2"},
                      {"BRANCH=", "0x2"},
                      {"COMPATIBLE", "0x3"},
                      {"SSE2", "0x4"},
                      {"SSE3", "0x4"},
                      {"SSSE3", "0x4"},
                      {"SSE4_1", "0x7"},
                      {"AVX", "0x8"},
                      {"AVX512_PLT", "0xa"},
                      {"AVX512_PLT_E1", "0xa"}};
  expect_words(FakeCpu().avx2(), avx2);
  expect_words(FakeCpu().avx2(), {{too_long.c_str(), "0x1"}});
  expect_words(FakeCpu().avx512(), {{"AVX512", "0xc"}, {"AVX512_E1", "0x2"}});
  expect_words(FakeCpu().sse42(), {{"SSE4_2", "0x8"}, {"AVX2", "0x2"}});
  expect_words(FakeCpu().sse3(), {{"SSE4_1", "0x2"}, {"SSE2,STRICT", "0x10004"}});
  // Another vendor keeps only AUTO and COMPATIBLE.
  expect_words(
      FakeCpu("OtherVendor!").full(),
      {{"AUTO", "0x2"}, {"COMPATIBLE,STRICT", "0x10003"}, {"SSE2", "0x2"}, {"AVX512_E1", "0x2"}});
}

TEST_F(Cbwr, GetterArgument) {
  const auto r = on_cpu(FakeCpu().avx2(), {{kCbwr, "AVX2,STRICT"}}, [] {
    std::printf("%d %d %d %d\n", tvx_cbwr_get(0), tvx_cbwr_get(2), tvx_cbwr_get(1),
                tvx_cbwr_get(-1));
    return 0;
  });
  EXPECT_EQ(r.out, "-2 -2 10 65546\n");
}

TEST_F(Cbwr, CheckOfABranch) {
  const struct {
    FakeCpu cpu;
    std::vector<std::pair<std::uint32_t, int>> checks;
  } cases[] = {
      // Raw class 7, highest branch 12. 15 is not a branch, but not "above" either.
      {FakeCpu().avx512(),
       {{12, 0}, {11, -3}, {13, -3}, {14, -3}, {15, -2}, {1, -2}, {0x10004, 0}, {0x20004, -3}}},
      {FakeCpu().avx512().vnni(), {{14, 0}, {11, -3}, {13, -3}, {10, 0}}},  // raw class 9
      {FakeCpu("OtherVendor!").full(), {{3, 0}, {4, -3}, {16, -2}}},
  };
  for (const auto& c : cases) {
    c.cpu.install();
    for (const auto& [word, status] : c.checks) EXPECT_EQ(tvx_cbwr_check(word), status) << word;
  }
}

TEST_F(Cbwr, RetiredBranchesWarn) {
  const auto r = on_cpu(FakeCpu().full(), {}, [] {
    std::printf("%d\n", tvx_cbwr_check(6));
    std::printf("%d\n", tvx_cbwr_check(9));
    return 0;
  });
  EXPECT_EQ(r.out,
            "Orvane Tarvex WARNING: Support of Orvane(R) Supplemental Streaming SIMD Extensions 3 "
            "(Orvane(R) SSSE3) enabled only processors has been deprecated. Tarvex Math Library "
            "will use Orvane(R) Streaming SIMD 2 Extensions (Orvane(R) SSE2) instructions "
            "instead.\n0\n" +
                std::string(kAvxWarning) + "0\n");
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
