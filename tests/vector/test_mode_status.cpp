// The per-thread mode word (first read from TVX_KAZ_MODE, merge rules), the status word and the
// error callback calls.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "frame_support.h"
#include "tests/support/subprocess.h"
#include "tvx_vector.h"
#include "vector/frame/mode_status.h"

namespace {

using tvx::test::on_fresh_thread;
using tvx::test::run_in_child;

// ---- TVX_KAZ_MODE text ----------------------------------------------------------------------

struct ParseCase {
  std::string text;
  std::int64_t value;
};

std::string repeated(const std::string& head, const std::string& token, int times,
                     const std::string& tail) {
  std::string s = head;
  for (int i = 0; i < times; ++i) s += token;
  return s + tail;
}

TEST(ModeText, KeywordsAreOredAndAnyFaultVoidsAll) {
  const std::string longest = repeated("KAZ_LA", ",KAZ_LA", 33, ",KAZ_ERRMODE_ERRNO");
  const std::string too_long = repeated("KAZ_LA", ",KAZ_LA", 34, ",KAZ_RESTORE");
  ASSERT_EQ(longest.size(), 255u);
  ASSERT_EQ(too_long.size(), 256u);
  const ParseCase cases[] = {
      {"KAZ_LA,KAZ_ERRMODE_ERRNO", 0x201},
      {"KAZ_FLOAT_CONSISTENT", 0x10},
      {"KAZ_EP,KAZ_TRAP_INVALID,KAZ_TRAP_UNDERFLOW", 0x9000003},
      {"KAZ_ERRMODE_DEFAULT", 0x1A00},
      {"KAZ_ERRMODE_NOERR", 0x2000},
      {"KAZ_DEFAULT_PRECISION", 0},
      {"KAZ_RESTORE", 0x30},
      // Values are or'ed, not replaced: LA and HA make EP.
      {"KAZ_LA,KAZ_HA", 0x3},
      // The keyword is cut to sixteen characters; the full spelling leaves a 'T' behind.
      {"KAZ_DOUBLE_CONSISTEN", 0x20},
      {"KAZ_DOUBLE_CONSISTENT", -1},
      {longest, 0x201},
      {too_long, -1},
      {"KAZ_LA;KAZ_HA", -1},
      {"KAZ_LA,", -1},
      {"KAZ_LA,KAZ_", -1},
      {"KAZ_LA, KAZ_HA", -1},
      {"KAZ_LA,kAZ_HA", -1},
      {"KAZ_HAX", -1},
      {"KAZ_", -1},
      {"KAZ_la", -1},
      {"kaz_LA", -1},
      {" KAZ_LA", -1},
      {"KZ_LA", -1},
      {"KAZ_FLUSH_DENORMALS_ON", -1},
      {"", -1},
  };
  for (const ParseCase& c : cases) {
    EXPECT_EQ(tvx_kaz_mode_parse(c.text.c_str()), c.value) << '"' << c.text << '"';
  }
  EXPECT_EQ(tvx_kaz_mode_parse(nullptr), -1);
}

// The first mode word of each thread, in a child with TVX_KAZ_MODE set to `text` (null:
// unset). The child prints the word of its main thread, of a new thread after the main thread
// changed its own word, and of eight threads that start together.
std::string first_words(const char* text) {
  const auto result = run_in_child({{"TVX_KAZ_MODE", text}}, [] {
    const unsigned int main_word = kazGetMode();
    kazSetMode(KAZ_EP | KAZ_ERRMODE_STDERR | KAZ_FLUSH_DENORMALS_ON);
    unsigned int later = 0;
    std::thread([&] { later = kazGetMode(); }).join();
    std::vector<unsigned int> words(8);
    std::vector<std::thread> team;
    for (auto& w : words) team.emplace_back([&w] { w = kazGetMode(); });
    for (auto& t : team) t.join();
    bool alike = true;
    for (unsigned int w : words) alike = alike && w == later;
    std::printf("%x %x %s", main_word, later, alike ? "alike" : "differ");
    return 0;
  });
  EXPECT_EQ(result.exit_code, 0);
  return result.out;
}

TEST(ModeEnvironment, EveryNewThreadReadsTheVariable) {
  EXPECT_EQ(first_words(nullptr), "1a02 1a02 alike");
  EXPECT_EQ(first_words("KAZ_LA,KAZ_ERRMODE_ERRNO"), "201 201 alike");
  EXPECT_EQ(first_words("KAZ_LA;KAZ_HA"), "1a02 1a02 alike");
  // Accuracy HA is added when the text has none, ERRMODE_DEFAULT when it has no error mode.
  EXPECT_EQ(first_words("KAZ_FLOAT_CONSISTENT"), "1a12 1a12 alike");
  EXPECT_EQ(first_words("KAZ_ERRMODE_STDERR"), "402 402 alike");
  EXPECT_EQ(first_words("KAZ_EP,KAZ_TRAP_DIVBYZERO"), "2001a03 2001a03 alike");
  EXPECT_EQ(first_words("KAZ_DEFAULT_PRECISION"), "1a02 1a02 alike");
  EXPECT_EQ(first_words("HA"), "1a02 1a02 alike");
  EXPECT_EQ(first_words(repeated("KAZ_EP", ",KAZ_EP", 34, ",KAZ_RESTORE").c_str()),
            "1a02 1a02 alike");
}

TEST(ModeEnvironment, ThreadsStartedAfterAChangeSeeTheNewText) {
  const auto result = run_in_child({{"TVX_KAZ_MODE", "KAZ_LA"}}, [] {
    const unsigned int before = kazGetMode();
    setenv("TVX_KAZ_MODE", "KAZ_EP,KAZ_ERRMODE_IGNORE", 1);
    unsigned int other = 0;
    std::thread([&] { other = kazGetMode(); }).join();
    std::printf("%x %x %x", before, kazGetMode(), other);
    return 0;
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "1a01 1a01 103");
}

// The FP-control field survives every set: it can only come from the environment.
TEST(ModeEnvironment, FloatingPointFieldIsNeverMerged) {
  const auto result = run_in_child({{"TVX_KAZ_MODE", "KAZ_DOUBLE_CONSISTEN,KAZ_HA"}}, [] {
    kazSetMode(KAZ_FLOAT_CONSISTENT | KAZ_LA);
    kazSetMode(KAZ_FPUMODE_MASK);
    std::printf("%x", kazGetMode());
    return 0;
  });
  EXPECT_EQ(result.out, "1a21");
}

// ---- merge rules ------------------------------------------------------------------------------

TEST(ModeMerge, NonZeroFieldsReplaceZeroFieldsStay) {
  on_fresh_thread([] {
    EXPECT_EQ(kazGetMode(), KAZ_DEFAULT_MODE);
    EXPECT_EQ(kazSetMode(0), KAZ_DEFAULT_MODE);
    EXPECT_EQ(kazGetMode(), KAZ_DEFAULT_MODE);
    EXPECT_EQ(kazSetMode(KAZ_FLOAT_CONSISTENT), KAZ_DEFAULT_MODE);
    EXPECT_EQ(kazGetMode(), KAZ_DEFAULT_MODE);

    struct Step {
      unsigned int set, after;
    };
    const Step steps[] = {
        {KAZ_LA, 0x1A01},
        {KAZ_ERRMODE_STDERR, 0x0401},  // the whole error field is replaced
        {KAZ_FLUSH_DENORMALS_ON, 0x280401},
        {KAZ_FLUSH_DENORMALS_OFF, 0x140401},
        {KAZ_TRAP_INVALID, 0x1140401},
        {KAZ_TRAP_OVERFLOW | KAZ_TRAP_UNDERFLOW, 0xC140401},
        {0x10000, 0xC150401},
        {0x20000, 0xC160401},
        {KAZ_EP | KAZ_ERRMODE_ERRNO | KAZ_ERRMODE_CALLBACK | 0xF0, 0xC161203},
        {KAZ_RESTORE | KAZ_HA, 0xC161202},
    };
    unsigned int word = kazGetMode();
    for (const Step& s : steps) {
      EXPECT_EQ(kazSetMode(s.set), word) << std::hex << s.set;
      word = kazGetMode();
      EXPECT_EQ(word, s.after) << std::hex << s.set;
    }
    // The lower-case forms are the same calls.
    const unsigned int la = KAZ_LA;
    EXPECT_EQ(kazsetmode(&la), word);
    EXPECT_EQ(kazgetmode(), (word & ~KAZ_ACCURACY_MASK) | KAZ_LA);
  });
}

// ---- status word ------------------------------------------------------------------------------

TEST(StatusWord, SetGetClearArePerThreadAndUnchecked) {
  on_fresh_thread([] {
    EXPECT_EQ(kazGetErrStatus(), 0);
    EXPECT_EQ(kazSetErrStatus(123456), 0);
    EXPECT_EQ(kazGetErrStatus(), 123456);
    const int minus = -99;
    EXPECT_EQ(kazseterrstatus(&minus), 123456);
    EXPECT_EQ(kazgeterrstatus(), -99);
    EXPECT_EQ(kazClearErrStatus(), -99);
    EXPECT_EQ(kazGetErrStatus(), 0);
    kazSetErrStatus(KAZ_STATUS_EP_ONLY_WARNING);
    EXPECT_EQ(kazclearerrstatus(), KAZ_STATUS_EP_ONLY_WARNING);
    EXPECT_EQ(kazGetErrStatus(), 0);

    kazSetErrStatus(7);
    int other = -1;
    std::thread([&] {
      other = kazGetErrStatus();
      kazSetErrStatus(8);
    }).join();
    EXPECT_EQ(other, 0);
    EXPECT_EQ(kazGetErrStatus(), 7);
  });
}

// ---- callback calls ---------------------------------------------------------------------------

int callback_one(kaz_error_record*) {
  return 1;
}
int callback_two(kaz_error_record*) {
  return 0;
}

TEST(Callback, SettingMergesTheCallbackBit) {
  on_fresh_thread([] {
    EXPECT_EQ(kazGetErrorCallBack(), nullptr);
    // ERRMODE_DEFAULT already holds the bit.
    EXPECT_EQ(kazSetErrorCallBack(callback_one), nullptr);
    EXPECT_EQ(kazGetMode(), KAZ_DEFAULT_MODE);
    EXPECT_EQ(kazSetErrorCallBack(callback_two), callback_one);
    EXPECT_EQ(kazgeterrorcallback(), callback_two);

    // Clearing takes the bit out of a field with other bits...
    EXPECT_EQ(kazClearErrorCallBack(), callback_two);
    EXPECT_EQ(kazGetErrorCallBack(), nullptr);
    EXPECT_EQ(kazGetMode(), 0x0A02u);
    // ... and setting puts it back beside them.
    EXPECT_EQ(kazseterrorcallback(callback_one), nullptr);
    EXPECT_EQ(kazGetMode(), KAZ_DEFAULT_MODE);

    // A later error mode replaces the field: the callback stays stored but its bit is gone.
    kazSetMode(KAZ_ERRMODE_ERRNO);
    EXPECT_EQ(kazGetMode(), 0x0202u);
    EXPECT_EQ(kazGetErrorCallBack(), callback_one);
    EXPECT_EQ(kazSetErrorCallBack(callback_one), callback_one);
    EXPECT_EQ(kazGetMode(), 0x1202u);

    // With the callback bit alone, clearing can't zero the field, so the bit stays.
    kazSetMode(KAZ_ERRMODE_CALLBACK);
    EXPECT_EQ(kazclearerrorcallback(), callback_one);
    EXPECT_EQ(kazGetMode(), 0x1002u);
    EXPECT_EQ(kazGetErrorCallBack(), nullptr);
  });
}

}  // namespace
