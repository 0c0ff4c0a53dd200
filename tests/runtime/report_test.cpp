// Messages, the parameter-error reporter, environment reads, the bounded string helpers, the exit
// hook and the stop lists.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "runtime/report.h"
#include "support/subprocess.h"

namespace tvx::test {
namespace {

TEST(Reporter, DefaultLines) {
  const struct {
    const char* name;
    int length;
    std::int64_t info;
    const char* line;  // printed between "\nOrvane Tarvex " and "\n"; null: nothing printed
  } cases[] = {
      {"vdExp", 5, 0, "INTERNAL ERROR: Condition 0 detected in function vdExp."},
      {"vdExp", 5, -4, "INTERNAL ERROR: Condition 4 detected in function vdExp."},
      {"vdExp", 5, 3, "ERROR: Parameter 3 was incorrect on entry to vdExp."},
      {"f", 1, 1000, "INTERNAL ERROR: Insufficient workspace available in function f."},
      {"f", 1, 1001, "ERROR: Incompatible optional parameters on entry to f."},
      {"f", 1, 1102, "INTERNAL ERROR: Not enough work memory in function f"},
      {"f", 1, 1225, "INTERNAL ERROR: Issue accessing coprocessor f."},
      // Values with no special line are parameter numbers.
      {"f", 1, 1226, "ERROR: Parameter 1226 was incorrect on entry to f."},
      // Values beyond the printed range saturate; the most negative must not overflow negated.
      {"f", 1, INT64_MIN, "INTERNAL ERROR: Condition 2147483647 detected in function f."},
      {"f", 1, std::int64_t{1} << 40, "ERROR: Parameter 2147483647 was incorrect on entry to f."},
      // The name is cut to `length`, and to 20 characters at most.
      {"rudSSEditOutliersDete", 21, 2,
       "ERROR: Parameter 2 was incorrect on entry to rudSSEditOutliersDet."},
      {"vdPowx", 3, 2, "ERROR: Parameter 2 was incorrect on entry to vdP."},
      {"vdExp", -1, 2, nullptr},
  };
  for (const auto& c : cases) {
    const auto r = run_in_child({}, [&] {
      tvx_param_error_report(c.name, &c.info, c.length);
      return 0;
    });
    EXPECT_EQ(r.out, c.line ? std::string("\nOrvane Tarvex ") + c.line + "\n" : "") << c.info;
  }
  // Null name or value: nothing.
  const auto r = run_in_child({}, [] {
    const std::int64_t info = 1;
    tvx_param_error_report(nullptr, &info, 3);
    tvx_param_error_report("abc", nullptr, 3);
    return tvx_param_error_default(nullptr, &info, 3);
  });
  EXPECT_EQ(r.out, "");
}

std::string g_seen;
int recording_hook(const char* name, const std::int64_t* info, int length) {
  g_seen += std::string(name, static_cast<std::size_t>(length)) + ":" + std::to_string(*info) + ";";
  return 0;
}
int other_hook(const char*, const std::int64_t*, int) {
  return 1;
}

TEST(Reporter, HookInstallAndSwap) {
  // The first swap answers the default reporter; install_default leaves a set hook alone.
  EXPECT_EQ(tvx_param_error_set(recording_hook), &tvx_param_error_default);
  tvx_param_error_install_default(other_hook);
  const std::int64_t info = 4;
  tvx_param_error_report("vsLn", &info, 4);
  EXPECT_EQ(tvx_null_pointer_report(&info, "x"), 0);
  EXPECT_EQ(tvx_null_pointer_report(nullptr, "vdRngGaussian"), 1);
  EXPECT_EQ(g_seen, "vsLn:4;vdRngGaussian:1102;");
  EXPECT_EQ(tvx_param_error_set(nullptr), &recording_hook);
  tvx_param_error_install_default(other_hook);
  EXPECT_EQ(tvx_param_error_set(nullptr), &other_hook);
}

TEST(Messages, NewlineUnknownAndOverflow) {
  auto r = run_in_child({}, [] {
    tvx_print_message(1, 0, 0);
    tvx_print_message(0, 5, 0);
    tvx_print_message(0, 773, 0);
    return 0;
  });
  EXPECT_EQ(r.out, "\n\nOrvane Tarvex FATAL ERROR: memory allocation error.\n");

  // Message 1102 is 66 characters before its name: a name of 446 makes exactly 512 characters,
  // which fit; one more overflows and is announced first.
  const std::size_t prefix = std::strlen(tvx_message_text(1102)) - 2;
  const std::string fits(512 - prefix, 'n');
  r = run_in_child({}, [&] {
    tvx_print_message(0, 1102, 1, fits.c_str());
    return 0;
  });
  EXPECT_EQ(r.out.size(), 513u);
  EXPECT_EQ(r.out.find("overflow"), std::string::npos);
  const std::string over(513 - prefix, 'n');
  r = run_in_child({}, [&] {
    tvx_print_message(0, 1102, 1, over.c_str());
    return 0;
  });
  EXPECT_EQ(r.out.rfind("\nTVX INTERNAL ERROR: message buffer overflow.\n       Lenght: 513   "
                        "Buffer size: 512\n",
                        0),
            0u)
      << r.out.substr(0, 120);
}

TEST(Environment, GetenvLengths) {
  const auto r = run_in_child(
      {{"TVX_TEST_VALUE", "abcdefgh"}, {"TVX_TEST_EMPTY", ""}, {"TVX_TEST_UNSET", nullptr}}, [] {
        char buf[9];
        std::memset(buf, 'x', sizeof buf);
        const int fits = tvx_getenv("TVX_TEST_VALUE", buf, 9);
        const bool copied = std::strcmp(buf, "abcdefgh") == 0;
        const int exact = tvx_getenv("TVX_TEST_VALUE", buf, 8);
        const bool emptied1 = buf[0] == '\0';
        buf[0] = 'x';
        const int empty = tvx_getenv("TVX_TEST_EMPTY", buf, 9);
        const bool emptied2 = buf[0] == '\0';
        buf[0] = 'x';
        const int unset = tvx_getenv("TVX_TEST_UNSET", buf, 9);
        std::printf("%d %d %d %d %d%d%d %d\n", fits, exact, empty, unset, copied, emptied1,
                    emptied2, buf[0] == '\0');
        return 0;
      });
  EXPECT_EQ(r.out, "8 -8 0 0 111 1\n");
}

// ---- Bounded string helpers -----------------------------------------------------------------

std::vector<std::string> g_faults;
void record_fault(const char* text, int code) {
  g_faults.push_back(std::string(text) + "/" + std::to_string(code));
}

class Bounded : public ::testing::Test {
 protected:
  void SetUp() override {
    g_faults.clear();
    previous_ = tvx_set_constraint_handler(record_fault);
  }
  void TearDown() override { tvx_set_constraint_handler(previous_); }
  tvx_constraint_handler_fn previous_ = nullptr;
};

TEST_F(Bounded, Strnlen) {
  EXPECT_EQ(tvx_strnlen_s("abcdef", 4), 4u);
  EXPECT_EQ(tvx_strnlen_s("abc", 4096), 3u);
  EXPECT_EQ(tvx_strnlen_s(nullptr, 4), 0u);
  EXPECT_EQ(tvx_strnlen_s("abc", 0), 0u);
  EXPECT_EQ(tvx_strnlen_s("abc", 4097), 0u);
  EXPECT_EQ(g_faults, (std::vector<std::string>{"strnlen_s: dmax is 0/401",
                                                "strnlen_s: dmax exceeds max/403"}));
}

TEST_F(Bounded, StrncpyAndStrncat) {
  char dest[8];
  EXPECT_EQ(tvx_strncpy_s(dest, sizeof dest, "abcdefgh", 3), 0);
  EXPECT_STREQ(dest, "abc");
  EXPECT_EQ(tvx_strncpy_s(dest, sizeof dest, "abcdefg", 10), 0);
  EXPECT_STREQ(dest, "abcdefg");
  EXPECT_EQ(tvx_strncpy_s(dest, sizeof dest, "abcdefgh", 10), 406);  // no room for the terminator
  EXPECT_STREQ(dest, "");
  char both[16] = "abcdef";
  EXPECT_EQ(tvx_strncpy_s(both + 2, 8, both, 6), 404);
  EXPECT_EQ(both[2], '\0');

  std::strcpy(dest, "ab");
  EXPECT_EQ(tvx_strncat_s(dest, sizeof dest, "cdefgh", 3), 0);
  EXPECT_STREQ(dest, "abcde");
  EXPECT_EQ(tvx_strncat_s(dest, sizeof dest, "fgh", 3), 406);
  EXPECT_STREQ(dest, "");
  EXPECT_EQ(g_faults, (std::vector<std::string>{"strncpy_s: not enough space for src/406",
                                                "strncpy_s: overlapping objects/404",
                                                "strncat_s: not enough space for src/406"}));
}

TEST_F(Bounded, MemcpyAndMemmove) {
  unsigned char dest[8];
  const unsigned char src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(tvx_memcpy_s(dest, 8, src, 8), 0);
  EXPECT_EQ(std::memcmp(dest, src, 8), 0);
  EXPECT_EQ(tvx_memcpy_s(nullptr, 8, src, 8), 400);
  EXPECT_EQ(tvx_memcpy_s(dest, 0, src, 8), 401);
  EXPECT_EQ(tvx_memcpy_s(dest, 8, src, 9), 403);
  EXPECT_EQ(dest[0], 0);  // a faulting copy clears its destination
  EXPECT_EQ(tvx_memcpy_s(dest, 8, nullptr, 8), 400);
  EXPECT_EQ(tvx_memcpy_s(dest, 8, src, 0), 401);
  unsigned char buf[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(tvx_memcpy_s(buf + 1, 7, buf, 4), 404);
  EXPECT_EQ(tvx_memmove_s(buf, 8, src, 8), 0);
  EXPECT_EQ(tvx_memmove_s(buf + 1, 7, buf, 4), 0);
  const unsigned char moved[8] = {1, 1, 2, 3, 4, 6, 7, 8};
  EXPECT_EQ(std::memcmp(buf, moved, 8), 0);
  EXPECT_EQ(tvx_memmove_s(nullptr, 8, src, 8), 400);
  EXPECT_EQ(tvx_memmove_s(buf, 0, src, 8), 401);
  EXPECT_EQ(tvx_memmove_s(buf, 8, src, 0), 401);
  EXPECT_EQ(tvx_memmove_s(buf, 4, src, 8), 403);
  EXPECT_EQ(tvx_memmove_s(buf, 8, nullptr, 8), 400);
  EXPECT_EQ(g_faults, (std::vector<std::string>{
                          "memcpy_s: dest is NULL/400", "memcpy_s: dmax is 0/401",
                          "memcpy_s: smax exceeds dmax/403", "memcpy_s: src is NULL/400",
                          "memcpy_s: smax is 0/401", "memcpy_s: overlap undefined/404",
                          "memmove_s: dest is null/400", "memmove_s: dmax is 0/401",
                          "memmove_s: smax is 0/401", "memmove_s: smax exceeds max/403",
                          "memmove_s: src is null/400"}));
}

// ---- Exit and stop ---------------------------------------------------------------------------

TEST(Lifetime, ExitGoesThroughTheHookOrEndsAtOnce) {
  auto r = run_in_child({}, []() -> int {
    tvx_set_exit_hook([](int code) {
      std::printf("hook %d\n", code);
      std::fflush(stdout);
      _exit(code + 10);
    });
    tvx_exit(7);
  });
  EXPECT_EQ(r.exit_code, 17);
  EXPECT_EQ(r.out, "hook 7\n");
  // Without a hook the process ends with the code and runs no atexit handler.
  r = run_in_child({}, []() -> int {
    std::atexit([] { std::printf("atexit ran\n"); });
    std::printf("before\n");
    tvx_exit(5);
  });
  EXPECT_EQ(r.exit_code, 5);
  EXPECT_EQ(r.out, "before\n");
}

TEST(Lifetime, StopHandlersRunOnceLastFirst) {
  const auto r = run_in_child({}, [] {
    static const char* names[] = {"a", "b", "c", "x", "y"};
    auto print = [](void* context) { std::printf("%s ", static_cast<const char*>(context)); };
    tvx_register_at_stop(print, const_cast<char*>(names[0]));
    tvx_register_at_stop_late(print, const_cast<char*>(names[3]));
    tvx_register_at_stop(print, const_cast<char*>(names[1]));
    tvx_register_at_stop(print, const_cast<char*>(names[2]));
    tvx_register_at_stop_late(print, const_cast<char*>(names[4]));
    std::printf("%d ", tvx_library_stopping());
    tvx_library_stop();
    tvx_library_stop();
    std::printf("%d\n", tvx_library_stopping());
    return 0;
  });
  EXPECT_EQ(r.out, "0 c b a y x 1\n");
}

TEST(Lifetime, FullStopListEndsTheProcess) {
  const auto r = run_in_child({}, [] {
    for (int i = 0; i < 9; ++i) {
      tvx_register_at_stop([](void*) {}, nullptr);
      std::printf("+");
    }
    return 0;
  });
  EXPECT_EQ(r.exit_code, 3);
  EXPECT_LE(r.out.size(), 8u);
}

}  // namespace
}  // namespace tvx::test
