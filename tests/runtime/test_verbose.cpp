// The verbose line and banner, captured from children: level parsing, time units, settings
// fields, the output file and its warnings, and the wrapper that export code puts around a call.
#include <gtest/gtest.h>
#include <regex.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/settings.h"
#include "runtime/verbose.h"
#include "support/subprocess.h"

namespace {

using tvx::test::Env;
using tvx::test::lines_of;
using tvx::test::run_in_child;

// The settings fields after the time:
// " CNR:<name>[,STRICT] Dyn:<0|1> FastMM:<0|1> TID:<n padded to 2> NThr:<n>[,BLAS:n][,FFT:n]..."
const char* const kSettings =
    " CNR:[A-Z0-9_?]+(,STRICT)? Dyn:[01] FastMM:[01] TID:[0-9]+ *NThr:[0-9]+(,BLAS:[0-9]+)?"
    "(,FFT:[0-9]+)?(,KAZ:[0-9]+)?(,QUARTZ:[0-9]+)?";
// A time as the line prints it: "d.dds", "d.ddms", "d.ddus" or "dns".
const char* const kTime = "([0-9]+\\.[0-9]{2}(s|ms|us)|[0-9]+ns)";

// `line` is `head` followed by text that matches `rest`.
::testing::AssertionResult verbose_line(const std::string& line, const std::string& head,
                                        const std::string& rest = kSettings) {
  regex_t re;
  if (regcomp(&re, ("^" + rest + "$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
    return ::testing::AssertionFailure() << "bad pattern " << rest;
  }
  const bool ok =
      line.rfind(head, 0) == 0 && regexec(&re, line.c_str() + head.size(), 0, nullptr, 0) == 0;
  regfree(&re);
  if (ok) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "\"" << line << "\" is not \"" << head << "\" + " << rest;
}

// The lines a child printed running `body` under `env`.
std::vector<std::string> printed(const Env& env, const std::function<void()>& body) {
  return lines_of(run_in_child(env, [&] {
                    body();
                    return 0;
                  }).out);
}

std::vector<std::string> file_lines(const std::string& path) {
  std::stringstream s;
  s << std::ifstream(path).rdbuf();
  return lines_of(s.str());
}

TEST(Verbose, LevelParsing) {
  const std::pair<const char*, int> cases[] = {
      {"0", 0},  {"1", 1}, {"2", 2},   {"0x1", 1}, {"0x2", 2}, {"02", 2}, {"1x", 0},   {"3", 0},
      {"-1", 0}, {"", 0},  {"abc", 0}, {"010", 0}, {"0x", 0},  {"1 ", 0}, {nullptr, 0}};
  for (const auto& [value, level] : cases) {
    const auto r = run_in_child({{"TVX_VERBOSE", value}}, [] {
      const std::uint32_t first = *tvx_verbose_mode();
      setenv("TVX_VERBOSE", "2", 1);  // read once: a later change is not seen
      return *tvx_verbose_mode() == first ? static_cast<int>(first) : 100;
    });
    EXPECT_EQ(r.exit_code, level) << (value ? value : "(unset)");
  }
}

TEST(Verbose, TimeUnits) {
  const std::pair<double, const char*> cases[] = {
      {1.0, "1000.00ms"}, {2.5, "2.50s"},     {0.0, "0.00s"},       {-3.0, "0.00s"},
      {NAN, "0.00s"},     {0.0015, "1.50ms"}, {0.001, "1000.00us"}, {2.5e-6, "2.50us"},
      {1e-6, "1000ns"},   {5e-9, "5ns"},      {1e-12, "0ns"},       {1234.5678, "1234.57s"}};
  const auto lines = printed({{"TVX_VERBOSE", "1"}, {"TVX_VERBOSE_OUTPUT_FILE", nullptr}}, [&] {
    for (const auto& c : cases) tvx_verbose_print(1, "vdRngCall(1,0x0)", c.first);
  });
  ASSERT_EQ(lines.size(), 1 + std::size(cases));  // one banner
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_TRUE(
        verbose_line(lines[i + 1], std::string("TVX_VERBOSE vdRngCall(1,0x0) ") + cases[i].second));
  }
}

TEST(Verbose, BannerOncePerProcess) {
  const auto lines = printed({{"TVX_VERBOSE", "1"}, {"TVX_VERBOSE_OUTPUT_FILE", nullptr}}, [] {
    tvx_verbose_print(2, "first", 1e-3);
    tvx_verbose_print(1, "second", 1e-3);
  });
  ASSERT_EQ(lines.size(), 3u);
  const std::string& banner = lines[0];
  EXPECT_EQ(banner.rfind("TVX_VERBOSE Tarvex 2025 Patch 1 Product build 20241031 for ", 0), 0u)
      << banner;
  const std::size_t word = banner.rfind(", Lnx ");
  ASSERT_NE(word, std::string::npos) << banner;
  double ghz = 0.0;
  char rest[64] = {};
  EXPECT_EQ(std::sscanf(banner.c_str() + word, ", Lnx %lfGHz %63[^\n]", &ghz, rest), 2) << banner;
  EXPECT_GT(ghz, 0.0);
  EXPECT_STREQ(rest, "ilp64 orvane_thread");
  EXPECT_EQ(lines[1].rfind("TVX_VERBOSE first ", 0), 0u);
  EXPECT_EQ(lines[2].rfind("TVX_VERBOSE second ", 0), 0u);
  // Interface names of the banner.
  const std::pair<int, std::string> names[] = {{1, " lp64 orvane_thread"},
                                               {-1, " cdecl orvane_thread"},
                                               {0x7b, " iface7b orvane_thread"},
                                               {0, "GHz orvane_thread"}};
  for (const auto& [iface, tail] : names) {
    const auto first = printed({{"TVX_VERBOSE", "1"}}, [&] { tvx_verbose_print(iface, "x", 1); });
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first[0].substr(first[0].size() - tail.size()), tail) << first[0];
  }
}

TEST(Verbose, SettingsFields) {
  // All domains agree: the count stands alone, and the switch shows in FastMM.
  auto lines = printed({{"TVX_VERBOSE", "1"}, {"TVX_DISABLE_FAST_MM", "1"}}, [] {
    tvx_set_num_threads(1);
    tvx_verbose_print(1, "call", 0.5);
  });
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(verbose_line(lines[1], "TVX_VERBOSE call 500.00ms"));
  EXPECT_TRUE(
      verbose_line(lines[1], "TVX_VERBOSE call 500.00ms CNR:", ".* FastMM:0 TID:0  NThr:1"));
  // A domain that differs follows the count.
  lines = printed({{"TVX_VERBOSE", "1"}}, [&] {
    tvx_set_num_threads(2);
    tvx_domain_set_num_threads(1, TVX_DOMAIN_FFT);
    if (tvx_domain_max_threads(TVX_DOMAIN_FFT) == tvx_get_max_threads()) std::printf("same\n");
    tvx_verbose_print(1, "call", 0.5);
  });
  if (!lines.empty() && lines[0] == "same") GTEST_SKIP() << "per-domain counts are not settable";
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(verbose_line(lines[1], "TVX_VERBOSE call 500.00ms CNR:", ".* NThr:2,FFT:1"));
}

TEST(Verbose, OutputFile) {
  char dir_name[] = "/tmp/tvx_verbose_XXXXXX";
  ASSERT_NE(mkdtemp(dir_name), nullptr);
  const std::string dir = dir_name, path = dir + "/lines.txt";
  std::ofstream(path) << "kept\n";
  const Env env = {{"TVX_VERBOSE", "1"}, {"TVX_VERBOSE_OUTPUT_FILE", path.c_str()}};
  const auto out = printed(env, [] {
    tvx_verbose_print(1, "one", 1.0);
    tvx_verbose_print(1, "two", 1.0);
  });
  EXPECT_TRUE(out.empty()) << "nothing on standard output";
  const auto lines = file_lines(path);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], "kept") << "lines are appended";
  EXPECT_EQ(lines[1].rfind("TVX_VERBOSE Tarvex 2025", 0), 0u);
  EXPECT_EQ(lines[2].rfind("TVX_VERBOSE one 1000.00ms CNR:", 0), 0u);
  EXPECT_EQ(lines[3].rfind("TVX_VERBOSE two 1000.00ms CNR:", 0), 0u);

  // The file's directory goes away after the first line: the rest goes to standard output.
  const auto gone = printed(env, [&] {
    tvx_verbose_print(1, "three", 1.0);
    std::remove(path.c_str());
    rmdir(dir.c_str());
    tvx_verbose_print(1, "four", 1.0);
  });
  ASSERT_EQ(gone.size(), 2u);
  EXPECT_EQ(gone[0], "TVX_VERBOSE WARNING: unable to open output file. Print to STDOUT");
  EXPECT_EQ(gone[1].rfind("TVX_VERBOSE four 1000.00ms", 0), 0u);
}

TEST(Verbose, BadOutputFileNames) {
  const std::string long_name = "/tmp/" + std::string(255, 'x');  // 260 characters
  const std::string longest = "/tmp/" + std::string(254, 'y');    // 259 characters: accepted
  const char* const bad_name = "TVX_VERBOSE WARNING: incorrect output filename: too long or empty";
  const std::pair<const char*, const char*> cases[] = {
      {"", bad_name},
      {long_name.c_str(), bad_name},
      {"/nonexistent-dir/tvx/lines.txt",
       "TVX_VERBOSE WARNING: Unable to open verbose output file."},
      {nullptr, nullptr}};
  auto two_calls = [] {
    tvx_verbose_print(1, "call", 1.0);
    tvx_verbose_print(1, "call", 1.0);
  };
  for (const auto& [value, warning] : cases) {
    const auto lines =
        printed({{"TVX_VERBOSE", "1"}, {"TVX_VERBOSE_OUTPUT_FILE", value}}, two_calls);
    const std::size_t at = warning != nullptr ? 1 : 0;
    ASSERT_EQ(lines.size(), 3 + at);
    if (warning != nullptr) {
      EXPECT_EQ(lines[0], warning) << "once, before the banner";
    }
    EXPECT_EQ(lines[at].rfind("TVX_VERBOSE Tarvex", 0), 0u);
    EXPECT_EQ(lines[at + 1].rfind("TVX_VERBOSE call 1000.00ms", 0), 0u);
  }
  std::remove(longest.c_str());
  const auto out =
      printed({{"TVX_VERBOSE", "1"}, {"TVX_VERBOSE_OUTPUT_FILE", longest.c_str()}}, two_calls);
  EXPECT_TRUE(out.empty()) << "the longest name that fits is taken";
  EXPECT_EQ(file_lines(longest).size(), 3u);
  std::remove(longest.c_str());
}

// A small export-like routine around the wrapper.
int scale_sum(int n, const double* a, double factor, double* out) {
  return tvx::verbose_wrap(
      [&] {
        double s = 0.0;
        for (int i = 0; i < n; ++i) s += a[i];
        *out = s * factor;
        return n > 0 ? 0 : -1;
      },
      "vdScaleSum(%d,%p,%lf,%p)", n, static_cast<const void*>(a), factor, static_cast<void*>(out));
}

TEST(Verbose, WrapperAroundACall) {
  const double a[3] = {1.0, 2.0, 3.5};
  double out = 0.0;
  for (const char* level : {"0", static_cast<const char*>(nullptr)}) {
    const auto quiet = run_in_child({{"TVX_VERBOSE", level}}, [&] {
      return scale_sum(3, a, 2.0, &out) == 0 && out == 13.0 ? 0 : 1;
    });
    EXPECT_EQ(quiet.exit_code, 0);
    EXPECT_EQ(quiet.out, "") << "level 0 prints nothing";
  }
  const auto loud = run_in_child({{"TVX_VERBOSE", "1"}}, [&] {
    return scale_sum(0, a, 2.0, &out) == -1 ? 0 : 1;  // the body's result comes back unchanged
  });
  EXPECT_EQ(loud.exit_code, 0);
  const auto lines = lines_of(loud.out);
  ASSERT_EQ(lines.size(), 2u);
  char call[128];
  std::snprintf(call, sizeof call, "TVX_VERBOSE vdScaleSum(0,%p,2.000000,%p) ",
                static_cast<const void*>(a), static_cast<void*>(&out));
  EXPECT_TRUE(verbose_line(lines[1], call, kTime + std::string(kSettings)));

  // A call text longer than 256 characters is cut; a routine without a result works too.
  const auto cut = run_in_child({{"TVX_VERBOSE", "2"}}, [] {
    const std::string arg(400, 'z');
    int calls = 0;
    tvx::verbose_wrap([&] { ++calls; }, "vdLong(%s)", arg.c_str());
    tvx::verbose_wrap([&] { ++calls; }, "vdNoArgs()");
    return calls == 2 ? 0 : 1;
  });
  EXPECT_EQ(cut.exit_code, 0);
  const auto cut_lines = lines_of(cut.out);
  ASSERT_EQ(cut_lines.size(), 3u);
  EXPECT_EQ(cut_lines[1].rfind("TVX_VERBOSE vdLong(" + std::string(256 - 7, 'z') + " ", 0), 0u);
  EXPECT_EQ(cut_lines[2].rfind("TVX_VERBOSE vdNoArgs() ", 0), 0u);
}

TEST(Verbose, Clock) {
  const double ghz = tvx_cpu_ghz();
  EXPECT_GT(ghz, 0.3);
  EXPECT_LT(ghz, 10.0);
  const double t0 = tvx_seconds();
  usleep(100000);
  const double t1 = tvx_seconds();
  // The time stamp is calibrated against the wall clock: 100 ms sleep reads as 100 ms and a bit.
  EXPECT_GT(t1 - t0, 0.095);
  EXPECT_LT(t1 - t0, 0.3);
  double last = tvx_seconds();
  for (int i = 0; i < 1000; ++i) {
    const double now = tvx_seconds();
    ASSERT_GE(now, last);
    last = now;
  }
}

}  // namespace
