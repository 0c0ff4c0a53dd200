// Processor detection: the feature word, classification, the instruction limit, the debug
// override and the reproducibility branch, on synthetic processors and on this machine.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <set>
#include <string>

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

std::string last_line(const std::string& out) {
  const std::size_t end = out.find_last_not_of('\n');
  if (end == std::string::npos) return "";
  const std::size_t start = out.rfind('\n', end);
  return out.substr(start == std::string::npos ? 0 : start + 1, end - start);
}

// ---- Feature word ---------------------------------------------------------------------------

TEST_F(Detection, FeatureWordAgreesWithCompilerOnThisMachine) {
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
  const std::pair<const char*, int> fixed[] = {{"avx", 16},
                                               {"f16c", 15},
                                               {"avx512f", 27},
                                               {"avx512dq", 24},
                                               {"ptwrite", 25},
                                               {"avx512er", 32},
                                               {"avx512_vp2intersect", 56},
                                               {"avx512_fp16", 60},
                                               {"cldemote", 64},
                                               {"amx-tile", 71},
                                               {"pbndkb", 96}};
  for (const auto& [name, bit] : fixed) EXPECT_EQ(tvx_cpu_feature_bit(name), bit) << name;
  EXPECT_EQ(tvx_cpu_feature_bit("AVX2"), -1);
  EXPECT_EQ(tvx_cpu_feature_at(tvx_cpu_feature_count()), nullptr);
}

TEST_F(Detection, VectorFeaturesNeedOperatingSystemState) {
  // AVX-512 in CPUID but the OS saves only YMM state: the AVX2 level stays usable.
  FakeCpu ymm_only = FakeCpu().avx512();
  ymm_only.xcr0(0x7).install();
  EXPECT_TRUE(tvx_cpu_has_feature(TVX_FEAT_AVX2));
  EXPECT_FALSE(tvx_cpu_has_feature(TVX_FEAT_AVX512F));
  EXPECT_FALSE(tvx_cpu_has_feature(TVX_FEAT_AVX512VL));
  int fatal = 0;
  EXPECT_EQ(tvx_serv_cpu_classify(&fatal), 5);

  // Without OSXSAVE, XGETBV must not run and nothing VEX-encoded counts.
  FakeCpu no_osxsave = FakeCpu().avx512().clear(1, 0, R::ecx, 27);
  const int calls = FakeCpu::xgetbv_calls();
  no_osxsave.install();
  EXPECT_FALSE(tvx_cpu_has_feature(TVX_FEAT_AVX));
  EXPECT_FALSE(tvx_cpu_has_feature(TVX_FEAT_FMA));
  EXPECT_EQ(FakeCpu::xgetbv_calls(), calls);
  EXPECT_EQ(tvx_serv_cpu_classify(&fatal), 3);
}

TEST_F(Detection, BitManipulationNeedsBmi1Bmi2AndLzcnt) {
  FakeCpu cpu = FakeCpu().avx512().clear(0x80000001u, 0, R::ecx, 5);
  cpu.install();
  EXPECT_FALSE(tvx_cpu_has_feature(TVX_FEAT_BMI));
  EXPECT_FALSE(tvx_cpu_has_feature(TVX_FEAT_LZCNT));
  int fatal = 0;
  EXPECT_EQ(tvx_serv_cpu_classify(&fatal), 3);  // AVX without the whole AVX2 group
  FakeCpu with_all = FakeCpu().avx2();
  with_all.install();
  EXPECT_TRUE(tvx_cpu_has_feature(TVX_FEAT_BMI) && tvx_cpu_has_feature(TVX_FEAT_LZCNT));
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
  EXPECT_EQ(r.out, "0111 raw=7 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=-1\n");
  r = detect_on(cpu, {{"ORVANE_ISA_DISABLE", "avx2"}});
  EXPECT_EQ(r.out, "raw=3 base=3 type=5 variant=2 rud=5 cbwr=0x1 limit=-1\n");
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
      {"ssse3 only", FakeCpu().set(1, 0, R::ecx, 9), 0, 0, 0, 0, 0},
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

  // The limit is parsed but changes nothing, and "AVX" does not warn.
  const std::pair<const char*, const char*> limits[] = {
      {"SSE4_2", "0"}, {"AVX", "1"}, {"AVX512", "4"}};
  for (const auto& [value, code] : limits) {
    const auto r = detect_on(cpu, {{"TVX_ENABLE_INSTRUCTIONS", value}});
    EXPECT_EQ(r.out,
              std::string("raw=0 base=0 type=0 variant=0 rud=0 cbwr=0x1 limit=") + code + "\n");
  }
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

// ---- Instruction limit ----------------------------------------------------------------------

TEST_F(Detection, InstructionLimitCapsTheClass) {
  const FakeCpu cpu = FakeCpu().full();
  const std::pair<const char*, const char*> cases[] = {
      {"SSE4_2", "raw=3 base=3 type=5 variant=2 rud=5 cbwr=0x1 limit=0"},
      {"AVX2", "raw=5 base=5 type=7 variant=3 rud=7 cbwr=0x1 limit=2"},
      {"AVX2_E1", "raw=15 base=5 type=7 variant=3 rud=7 cbwr=0x1 limit=10"},
      {"AVX512", "raw=7 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=4"},
      {"AVX512_E1", "raw=9 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=6"},
      {"AVX512_E2", "raw=10 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=7"},
      {"AVX512_E3", "raw=12 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=8"},
      {"AVX512_E4", "raw=14 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=9"},
      {"AVX512_E5", "raw=16 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=11"},
      {"avx2", "raw=16 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=-1"},
      {"AVX2 ", "raw=16 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=-1"},
      {"", "raw=16 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=-1"},
  };
  for (const auto& [value, expected] : cases) {
    const auto r = detect_on(cpu, {{"TVX_ENABLE_INSTRUCTIONS", value}});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out, std::string(expected) + "\n") << value;
  }
}

TEST_F(Detection, InstructionLimitTheProcessorCannotHonourIsIgnored) {
  // AVX512_E2 asks for VAES, which this processor lacks: its bfloat16 class stays.
  auto r = detect_on(FakeCpu().avx512().vnni().bf16(), {{"TVX_ENABLE_INSTRUCTIONS", "AVX512_E2"}});
  EXPECT_EQ(r.out, "raw=12 base=7 type=9 variant=5 rud=9 cbwr=0x1 limit=7\n");
  // "AVX" warns whether or not the processor has AVX.
  const std::string warning =
      "Orvane Tarvex WARNING: Support of Orvane(R) Advanced Vector Extensions (Orvane(R) AVX) "
      "enabled only processors has been deprecated. Tarvex Math Library will use Orvane(R) "
      "Streaming SIMD Extensions 4.2 (Orvane(R) SSE4.2) instructions instead.\n";
  r = detect_on(FakeCpu().sse42(), {{"TVX_ENABLE_INSTRUCTIONS", "AVX"}});
  EXPECT_EQ(r.out, warning + "raw=3 base=3 type=5 variant=2 rud=5 cbwr=0x1 limit=1\n");
  r = detect_on(FakeCpu().full(), {{"TVX_ENABLE_INSTRUCTIONS", "AVX"}});
  EXPECT_EQ(r.out, warning + "raw=3 base=3 type=5 variant=2 rud=5 cbwr=0x1 limit=1\n");
  // An AVX-only processor takes class 3 silently.
  r = detect_on(FakeCpu().avx(), {});
  EXPECT_EQ(r.out, "raw=3 base=3 type=5 variant=2 rud=5 cbwr=0x1 limit=-1\n");
}

// ---- Debug override -------------------------------------------------------------------------

TEST_F(Detection, DebugOverrideIsAVariantForVectorAndACpuTypeForRandom) {
  const FakeCpu cpu = FakeCpu().full();
  const std::pair<const char*, const char*> cases[] = {
      {"3", "variant=3 rud=3"},  {"07", "variant=7 rud=7"},  {"9", "variant=9 rud=9"},
      {"0", "variant=0 rud=0"},  {"3xy", "variant=3 rud=3"}, {"8", "variant=5 rud=9"},
      {"3x", "variant=5 rud=9"}, {"12", "variant=5 rud=9"},  {"x3", "variant=5 rud=9"},
      {"08", "variant=5 rud=9"},
  };
  for (const auto& [value, expected] : cases) {
    const auto r = on_cpu(cpu, {{"TVX_KAZ_DEBUG_CPU_TYPE", value}}, [] {
      std::printf("variant=%d rud=%d type=%d\n", tvx_kaz_variant_index(), tvx_rud_cpu_type(),
                  tvx_serv_get_kaz_cpu_type());
      return 0;
    });
    // The override never touches the detected CPU type.
    EXPECT_EQ(r.out, std::string(expected) + " type=9\n") << value;
  }
}

// ---- Reproducibility branch in detection ----------------------------------------------------

TEST_F(Detection, PinnedBranchesGiveTheirCpuType) {
  struct Case {
    FakeCpu cpu;
    Env env;
    const char* expected;
    const char* home = "TarvexTestCo";
  };
  const Case cases[] = {
      {FakeCpu().full(), {{"TVX_CBWR", "COMPATIBLE"}}, "base=0 type=2 variant=0 rud=2 cbwr=0x3"},
      {FakeCpu().full(), {{"TVX_CBWR", "SSE4_1"}}, "base=0 type=0 variant=0 rud=0 cbwr=0x7"},
      {FakeCpu().full(), {{"TVX_CBWR", "AVX"}}, "base=3 type=5 variant=2 rud=5 cbwr=0x8"},
      {FakeCpu().full(),
       {{"TVX_CBWR", "BRANCH=AVX2,STRICT"}},
       "base=5 type=7 variant=3 rud=7 cbwr=0x1000a"},
      {FakeCpu().full(), {{"TVX_CBWR", "AVX512_E1"}}, "base=7 type=9 variant=5 rud=9 cbwr=0xe"},
      // A branch this processor cannot run falls back to AUTO.
      {FakeCpu().avx2(), {{"TVX_CBWR", "AVX512"}}, "base=5 type=7 variant=3 rud=7 cbwr=0x2"},
      // Another vendor runs only AUTO and COMPATIBLE.
      {FakeCpu("OtherVendor!").full(),
       {{"TVX_CBWR", "AVX2"}},
       "base=0 type=0 variant=0 rud=0 cbwr=0x2"},
      {FakeCpu("OtherVendor!").full(),
       {{"TVX_CBWR", "COMPATIBLE"}},
       "base=0 type=2 variant=0 rud=2 cbwr=0x3"},
      // The limit number is compared with the branch level as it stands: AVX512 (4) is below the
      // AVX2 level (5) and the processor has AVX, so classification under the limit decides.
      {FakeCpu().full(),
       {{"TVX_CBWR", "AVX2"}, {"TVX_ENABLE_INSTRUCTIONS", "AVX512"}},
       "base=7 type=9 variant=5 rud=9 cbwr=0xa"},
      {FakeCpu().full(),
       {{"TVX_CBWR", "AVX2"}, {"TVX_ENABLE_INSTRUCTIONS", "AVX2_E1"}},
       "base=5 type=7 variant=3 rud=7 cbwr=0xa"},
      {FakeCpu().full(),
       {{"TVX_CBWR", "SSE4_2"}, {"TVX_ENABLE_INSTRUCTIONS", "AVX2"}},
       "base=3 type=5 variant=2 rud=5 cbwr=0x8"},
      // The debug override still beats a pinned branch.
      {FakeCpu().full(),
       {{"TVX_CBWR", "COMPATIBLE"}, {"TVX_KAZ_DEBUG_CPU_TYPE", "1"}},
       "base=0 type=2 variant=1 rud=1 cbwr=0x3"},
  };
  for (const Case& c : cases) {
    const auto r = on_cpu(
        c.cpu, c.env,
        [] {
          std::printf("base=%d type=%d variant=%d rud=%d cbwr=0x%x\n", tvx_serv_get_cpu_type(),
                      tvx_serv_get_kaz_cpu_type(), tvx_kaz_variant_index(), tvx_rud_cpu_type(),
                      static_cast<unsigned>(tvx_cbwr_get(-1)));
          return 0;
        },
        c.home);
    EXPECT_EQ(last_line(r.out), c.expected) << c.env[0].second;
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

TEST_F(Detection, ThisMachineGetsItsBestVariant) {
  const auto r = run_in_child(clean_env(), [] {
    std::printf("%s\n", detection_summary().c_str());
    return 0;
  });
  __builtin_cpu_init();
  const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
  const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  const int expected_variant = avx512 ? 5 : avx2 ? 3 : __builtin_cpu_supports("sse4.2") ? 2 : 0;
  EXPECT_NE(r.out.find("variant=" + std::to_string(expected_variant) + " "), std::string::npos)
      << r.out;
}

}  // namespace
}  // namespace tvx::test
