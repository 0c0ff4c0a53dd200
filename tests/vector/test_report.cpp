// The report path of one bad element, driven through the kernels' report calls with small
// arrays: status word, errno, printed lines, callback record and write-back, the x87 flag.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <unistd.h>

#include "frame_support.h"
#include "tests/support/subprocess.h"
#include "tvx_vector.h"
#include "vector/frame/mode_status.h"

namespace {

using tvx::test::on_fresh_thread;
using tvx::test::run_in_child;
using tvx::test::stdout_of;

// What the test callback saw, and how it answers.
struct CallbackLog {
  int calls = 0;
  kaz_error_record last{};
  int answer = 1;
  bool rewrite = false;
  double r1 = 0, r2 = 0, r1_im = 0;
};
thread_local CallbackLog t_log;

int logging_callback(kaz_error_record* rec) {
  ++t_log.calls;
  t_log.last = *rec;
  if (t_log.rewrite) {
    rec->r1 = t_log.r1;
    rec->r2 = t_log.r2;
    rec->r1_im = t_log.r1_im;
  }
  return t_log.answer;
}

// ---- silent modes -----------------------------------------------------------------------------

TEST(ReportModes, NoErrorLeavesStatusIgnoreOnlySetsIt) {
  on_fresh_thread([] {
    double a[3] = {1, 2, 3}, r[3] = {4, 5, 6};
    kazSetErrorCallBack(logging_callback);
    t_log.answer = 0;
    t_log.rewrite = true;
    t_log.r1 = t_log.r2 = 99;

    kazSetMode(KAZ_ERRMODE_NOERR);
    kazSetErrStatus(-55);
    errno = 0;
    std::string out = stdout_of([&] { kaz_report_d(KAZ_STATUS_ERRDOM, 1, a, a, r, r, "vdLn"); });
    EXPECT_EQ(kazGetErrStatus(), -55);
    EXPECT_EQ(out, "");

    kazSetMode(KAZ_ERRMODE_IGNORE);
    out = stdout_of([&] {
      kaz_report_d(KAZ_STATUS_OVERFLOW, 0, a, a, r, r, "vdExp");
      kaz_report_d(KAZ_STATUS_SING, 2, a, a, r, r, "vdLn");
    });
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);  // the last condition wins
    EXPECT_EQ(out, "");
    EXPECT_EQ(t_log.calls, 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(r[0], 4);
    EXPECT_EQ(r[1], 5);
    EXPECT_EQ(r[2], 6);

    // Only the exact field silences: beside another bit, both act as ordinary error modes.
    for (unsigned int field : {KAZ_ERRMODE_NOERR, KAZ_ERRMODE_IGNORE}) {
      kazSetMode(field | KAZ_ERRMODE_ERRNO);
      kazSetErrStatus(0);
      errno = 0;
      kaz_report_d(KAZ_STATUS_ERRDOM, 1, a, a, r, r, "vdLn");
      EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_ERRDOM) << std::hex << field;
      EXPECT_EQ(errno, 33) << std::hex << field;
    }
  });
}

TEST(ReportModes, ErrnoByCode) {
  on_fresh_thread([] {
    float a[2] = {1, 2}, r[2] = {3, 4};
    kazSetMode(KAZ_ERRMODE_ERRNO);
    const struct {
      int code, err;
    } table[] = {{0, 0},
                 {KAZ_STATUS_BADSIZE, 22},
                 {KAZ_STATUS_BADMEM, 13},
                 {KAZ_STATUS_ERRDOM, 33},
                 {KAZ_STATUS_SING, 34},
                 {KAZ_STATUS_OVERFLOW, 34},
                 {KAZ_STATUS_UNDERFLOW, 34},
                 {77, 14},
                 {-3, 14}};
    for (const auto& t : table) {
      errno = 12345;
      kaz_report_s(t.code, 1, a, a, r, r, "vsLn");
      EXPECT_EQ(errno, t.err) << "code " << t.code;
      EXPECT_EQ(kazGetErrStatus(), t.code);
    }
    // Without the errno bit errno is left alone.
    kazSetMode(KAZ_ERRMODE_CALLBACK);
    errno = 12345;
    kaz_report_s(KAZ_STATUS_ERRDOM, 1, a, a, r, r, "vsLn");
    EXPECT_EQ(errno, 12345);
  });
}

// ---- printed lines ----------------------------------------------------------------------------

std::string printed(int code, int i, const double* a1, const double* a2, double* r1, double* r2,
                    const char* name) {
  return stdout_of([&] { kaz_report_d(code, i, a1, a2, r1, r2, name); });
}

TEST(ReportLines, StatusLineThenValueLines) {
  on_fresh_thread([] {
    kazSetMode(KAZ_ERRMODE_STDERR);
    double a[4] = {0, -1.5, 2, 8}, b[4] = {1, 0.25, -3, 0}, r[4] = {5, 7.25, 1e300, -2};
    double y[4] = {9, 0.5, 6, 0};

    EXPECT_EQ(printed(KAZ_STATUS_ERRDOM, 1, a, a, r, r, "vdLn"),
              "Error (KAZ_STATUS_ERRDOM) in vdLn: argument is out of domain.\n"
              "a(1)=-1.5\nr(1)=7.25\n");
    EXPECT_EQ(printed(KAZ_STATUS_SING, 1, a, b, r, r, "vdDiv"),
              "Error (KAZ_STATUS_SING) in vdDiv: argument caused singularity.\n"
              "a(1)=-1.5\nb(1)=0.25\ny(1)=7.25\n");
    EXPECT_EQ(printed(KAZ_STATUS_OVERFLOW, 2, a, a, r, y, "vdSinCos"),
              "Error (KAZ_STATUS_OVERFLOW) in vdSinCos: argument caused overflow.\n"
              "a(2)=2\ny(2)=1e+300\nz(2)=6\n");
    EXPECT_EQ(printed(KAZ_STATUS_UNDERFLOW, 2, a, b, r, y, "vdTwo"),
              "Error (KAZ_STATUS_UNDERFLOW) in vdTwo: argument caused underflow.\n"
              "a(2)=2\nb(2)=-3\ny(2)=1e+300\nz(2)=6\n");
    EXPECT_EQ(printed(77, 0, a, a, r, r, "vdAny"), "Unknown error in vdAny.\na(0)=0\nr(0)=5\n");

    // A zero second value, or the same bits in two places, counts as one value.
    EXPECT_EQ(printed(KAZ_STATUS_ERRDOM, 3, a, b, r, y, "vdPow"),
              "Error (KAZ_STATUS_ERRDOM) in vdPow: argument is out of domain.\n"
              "a(3)=8\nr(3)=-2\n");
    double negzero[1] = {-0.0}, zero[1] = {0.0}, same[1] = {-1.5};
    EXPECT_EQ(printed(KAZ_STATUS_ERRDOM, 0, zero, negzero, r, r, "vdPow"),
              "Error (KAZ_STATUS_ERRDOM) in vdPow: argument is out of domain.\n"
              "a(0)=0\nr(0)=5\n");
    EXPECT_EQ(printed(KAZ_STATUS_ERRDOM, 0, a + 1, same, r + 1, r + 1, "vdPow"),
              "Error (KAZ_STATUS_ERRDOM) in vdPow: argument is out of domain.\n"
              "a(0)=-1.5\nr(0)=7.25\n");

    // Size and pointer codes have no value lines; code 0 prints nothing at all.
    EXPECT_EQ(printed(KAZ_STATUS_BADSIZE, 7, a, a, r, r, "vdAdd"),
              "Error (KAZ_STATUS_BADSIZE) in vdAdd: array size 7 is not positive.\n");
    EXPECT_EQ(printed(KAZ_STATUS_BADMEM, 7, a, a, r, r, "vdAdd"),
              "Error (KAZ_STATUS_BADMEM) in vdAdd: NULL pointer is passed.\n");
    EXPECT_EQ(printed(0, 1, a, a, r, r, "vdAdd"), "");
    EXPECT_EQ(kazGetErrStatus(), 0);
  });
}

// ---- callback ---------------------------------------------------------------------------------

TEST(ReportCallback, RecordCarriesCodeIndexValuesAndName) {
  on_fresh_thread([] {
    kazSetErrorCallBack(logging_callback);
    t_log = CallbackLog{};
    float a[3] = {1.5f, -2.0f, 0.125f}, b[3] = {3, 4, 5}, r1[3] = {7, 8, 9}, r2[3] = {-7, -8, -9};
    kaz_report_s(KAZ_STATUS_SING, 2, a, b, r1, r2, "vsSomething");
    ASSERT_EQ(t_log.calls, 1);
    const kaz_error_record& rec = t_log.last;
    EXPECT_EQ(rec.code, KAZ_STATUS_SING);
    EXPECT_EQ(rec.index, 2);
    EXPECT_EQ(rec.a1, 0.125);
    EXPECT_EQ(rec.a2, 5.0);
    EXPECT_EQ(rec.r1, 9.0);
    EXPECT_EQ(rec.r2, -9.0);
    EXPECT_STREQ(rec.name, "vsSomething");
    EXPECT_EQ(rec.name_len, 11);

    // Size and pointer codes carry no values.
    kaz_report_s(KAZ_STATUS_BADMEM, 1, a, b, r1, r2, "vsX");
    EXPECT_EQ(t_log.last.code, KAZ_STATUS_BADMEM);
    EXPECT_EQ(t_log.last.a1, 0.0);
    EXPECT_EQ(t_log.last.r1, 0.0);

    // The name stops at 47 characters.
    const std::string long_name(60, 'q');
    kaz_report_s(KAZ_STATUS_ERRDOM, 0, a, a, r1, r1, long_name.c_str());
    EXPECT_EQ(t_log.last.name_len, 47);
    EXPECT_EQ(std::string(t_log.last.name), long_name.substr(0, 47));
    const std::string exact(47, 'w');
    kaz_report_s(KAZ_STATUS_ERRDOM, 0, a, a, r1, r1, exact.c_str());
    EXPECT_EQ(std::string(t_log.last.name), exact);
  });
}

TEST(ReportCallback, NonZeroAnswerKeepsKernelResultAndSkipsDefaultAction) {
  on_fresh_thread([] {
    kazSetMode(KAZ_ERRMODE_ERRNO | KAZ_ERRMODE_STDERR);
    kazSetErrorCallBack(logging_callback);
    t_log = CallbackLog{};
    t_log.answer = 1;
    t_log.rewrite = true;
    t_log.r1 = t_log.r2 = 42;
    double a[2] = {1, 2}, r[2] = {3, 4};
    errno = 0;
    const std::string out =
        stdout_of([&] { kaz_report_d(KAZ_STATUS_ERRDOM, 1, a, a, r, r, "vdLn"); });
    EXPECT_EQ(t_log.calls, 1);
    EXPECT_EQ(r[1], 4);
    EXPECT_EQ(out, "");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_ERRDOM);
  });
}

TEST(ReportCallback, ZeroAnswerWritesTheRecordBack) {
  on_fresh_thread([] {
    kazSetMode(KAZ_ERRMODE_ERRNO | KAZ_ERRMODE_STDERR);
    kazSetErrorCallBack(logging_callback);
    t_log = CallbackLog{};
    t_log.answer = 0;
    t_log.rewrite = true;
    t_log.r1 = 5;
    t_log.r2 = 7;
    double a[2] = {1, 2}, r[2] = {3, 4};
    errno = 0;
    // One output: r2 is written first, then r1 over it. The default action sees the new value.
    const std::string out =
        stdout_of([&] { kaz_report_d(KAZ_STATUS_ERRDOM, 1, a, a, r, r, "vdLn"); });
    EXPECT_EQ(r[1], 5);
    EXPECT_EQ(r[0], 3);
    EXPECT_EQ(errno, 33);
    EXPECT_EQ(out,
              "Error (KAZ_STATUS_ERRDOM) in vdLn: argument is out of domain.\n"
              "a(1)=2\ny(1)=5\nz(1)=7\n");

    // Two outputs each get their own value, narrowed to the element type.
    kazSetMode(KAZ_ERRMODE_CALLBACK);
    t_log.r1 = 0.1;
    t_log.r2 = -0.3;
    float fa[1] = {1}, f1[1] = {2}, f2[1] = {3};
    kaz_report_s(KAZ_STATUS_OVERFLOW, 0, fa, fa, f1, f2, "vsSinCos");
    EXPECT_EQ(f1[0], 0.1f);
    EXPECT_EQ(f2[0], -0.3f);

    // Size and pointer codes never write back.
    kaz_report_d(KAZ_STATUS_BADSIZE, 0, a, a, r, r, "vdLn");
    EXPECT_EQ(r[0], 3);
  });
}

TEST(ReportCallback, NotCalledWithoutItsBitOrPointer) {
  on_fresh_thread([] {
    kazSetErrorCallBack(logging_callback);
    t_log = CallbackLog{};
    kazSetMode(KAZ_ERRMODE_ERRNO);
    double a[1] = {1}, r[1] = {2};
    errno = 0;
    kaz_report_d(KAZ_STATUS_SING, 0, a, a, r, r, "vdLn");
    EXPECT_EQ(t_log.calls, 0);
    EXPECT_EQ(errno, 34);

    // The bit without a pointer: status only, no default action.
    kazSetMode(KAZ_ERRMODE_CALLBACK);
    kazClearErrorCallBack();
    errno = 0;
    kazSetErrStatus(0);
    kaz_report_d(KAZ_STATUS_SING, 0, a, a, r, r, "vdLn");
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(r[0], 2);
  });
}

TEST(ReportCallback, ComplexRecordsCarryBothParts) {
  on_fresh_thread([] {
    kazSetMode(KAZ_ERRMODE_CALLBACK);
    kazSetErrorCallBack(logging_callback);
    t_log = CallbackLog{};
    t_log.answer = 0;
    t_log.rewrite = true;
    t_log.r1 = 1;
    t_log.r1_im = -2;
    TvxComplex16 a[2] = {{1, 2}, {3, 4}}, b[2] = {{5, 6}, {7, 8}}, r[2] = {{9, 10}, {11, 12}};
    kaz_report_z(KAZ_STATUS_ERRDOM, 1, a, b, r, r, "vzPow");
    EXPECT_EQ(t_log.last.a1, 3);
    EXPECT_EQ(t_log.last.a1_im, 4);
    EXPECT_EQ(t_log.last.a2, 7);
    EXPECT_EQ(t_log.last.a2_im, 8);
    EXPECT_EQ(t_log.last.r1, 11);
    EXPECT_EQ(t_log.last.r1_im, 12);
    EXPECT_EQ(r[1].real, 1);
    EXPECT_EQ(r[1].imag, -2);
    EXPECT_EQ(r[0].real, 9);

    TvxComplex8 ca[1] = {{0.5f, -0.25f}}, cr[1] = {{0, 0}};
    t_log.r1 = 3;
    t_log.r1_im = 0.75;
    kaz_report_c(KAZ_STATUS_SING, 0, ca, ca, cr, cr, "vcLn");
    EXPECT_EQ(t_log.last.a1, 0.5);
    EXPECT_EQ(t_log.last.a1_im, -0.25);
    EXPECT_EQ(cr[0].real, 3.0f);
    EXPECT_EQ(cr[0].imag, 0.75f);
  });
}

TEST(ReportCallback, StridedCallsAddressElementTimesIncrement) {
  on_fresh_thread([] {
    kazSetMode(KAZ_ERRMODE_CALLBACK);
    kazSetErrorCallBack(logging_callback);
    t_log = CallbackLog{};
    t_log.answer = 0;
    t_log.rewrite = true;
    t_log.r1 = t_log.r2 = -1;
    double a[8] = {0, 1, 2, 3, 4, 5, 6, 7}, r[8] = {10, 11, 12, 13, 14, 15, 16, 17};
    kaz_report_di(KAZ_STATUS_ERRDOM, 2, a, 2, a, 2, r, 3, r, 3, "vdLnI");
    EXPECT_EQ(t_log.last.a1, 4);
    EXPECT_EQ(t_log.last.r1, 16);
    EXPECT_EQ(r[6], -1);
    EXPECT_EQ(r[2], 12);
    float fa[6] = {0, 1, 2, 3, 4, 5}, fr[6] = {0, 0, 0, 0, 0, 0};
    kaz_report_si(KAZ_STATUS_ERRDOM, 1, fa, 3, fa, 3, fr, 2, fr, 2, "vsLnI");
    EXPECT_EQ(t_log.last.a1, 3);
    EXPECT_EQ(fr[2], -1.0f);
  });
}

// A threaded call reports the element's place in the caller's whole vector.
TEST(ReportCallback, IndexCountsFromTheElementBase) {
  on_fresh_thread([] {
    kazSetMode(KAZ_ERRMODE_CALLBACK);
    kazSetErrorCallBack(logging_callback);
    t_log = CallbackLog{};
    EXPECT_EQ(kaz_get_element_base(), nullptr);
    float s[32] = {};
    double d[32] = {};
    TvxComplex8 c[32] = {};
    TvxComplex16 z[32] = {};

    kaz_set_element_base(s);
    EXPECT_EQ(kaz_get_element_base(), s);
    kaz_report_s(KAZ_STATUS_ERRDOM, 3, s + 10, s + 10, s + 10, s + 10, "vsLn");
    EXPECT_EQ(t_log.last.index, 13);
    kaz_set_element_base(d);
    kaz_report_d(KAZ_STATUS_ERRDOM, 4, d + 20, d + 20, d + 20, d + 20, "vdLn");
    EXPECT_EQ(t_log.last.index, 24);
    kaz_set_element_base(c);
    kaz_report_c(KAZ_STATUS_ERRDOM, 1, c + 7, c + 7, c + 7, c + 7, "vcLn");
    EXPECT_EQ(t_log.last.index, 8);
    kaz_set_element_base(z);
    kaz_report_z(KAZ_STATUS_ERRDOM, 5, z + 16, z + 16, z + 16, z + 16, "vzLn");
    EXPECT_EQ(t_log.last.index, 21);

    // The printed lines use the same index.
    kazSetMode(KAZ_ERRMODE_STDERR);
    kaz_set_element_base(d);
    d[21] = 2.5;
    EXPECT_EQ(
        stdout_of(
            [&] { kaz_report_d(KAZ_STATUS_SING, 1, d + 20, d + 20, d + 20, d + 20, "vdLn"); }),
        "Error (KAZ_STATUS_SING) in vdLn: argument caused singularity.\na(21)=2.5\nr(21)=2.5\n");

    kaz_set_element_base(nullptr);
    kazSetMode(KAZ_ERRMODE_CALLBACK);
    kaz_report_d(KAZ_STATUS_ERRDOM, 4, d + 20, d + 20, d + 20, d + 20, "vdLn");
    EXPECT_EQ(t_log.last.index, 4);
  });
}

// ---- x87 flag ---------------------------------------------------------------------------------

std::uint16_t x87_status() {
  std::uint16_t s;
  asm volatile("fnstsw %0" : "=m"(s));
  return s;
}
std::uint16_t x87_control() {
  std::uint16_t c;
  asm volatile("fnstcw %0" : "=m"(c));
  return c;
}
void x87_set_control(std::uint16_t c) {
  asm volatile("fldcw %0" : : "m"(c));
}
void x87_clear() {
  asm volatile("fnclex");
}

TEST(ReportException, SetsTheFlagAndLeavesExceptionsMasked) {
  on_fresh_thread([] {
    kazSetMode(KAZ_ERRMODE_EXCEPT);
    double a[1] = {1}, r[1] = {2};
    const struct {
      int code;
      std::uint16_t flag;
    } table[] = {{KAZ_STATUS_ERRDOM, 0x01},
                 {KAZ_STATUS_SING, 0x04},
                 {KAZ_STATUS_OVERFLOW, 0x08},
                 {KAZ_STATUS_UNDERFLOW, 0x10},
                 {0, 0},
                 {KAZ_STATUS_BADMEM, 0},
                 {77, 0}};
    const std::uint16_t control = x87_control();
    for (const auto& t : table) {
      x87_clear();
      errno = 0;
      kaz_report_d(t.code, 0, a, a, r, r, "vdLn");
      EXPECT_EQ(x87_status() & 0x3F, t.flag) << "code " << t.code;
      EXPECT_EQ(x87_control() & 0x3F, 0x3F);
      EXPECT_EQ(errno, 0);
    }

    // Flags raised before stay raised.
    x87_clear();
    volatile long double third = 1.0L;
    third = third / 3.0L;  // inexact
    ASSERT_EQ(x87_status() & 0x3F, 0x20);
    kaz_report_d(KAZ_STATUS_OVERFLOW, 0, a, a, r, r, "vdExp");
    EXPECT_EQ(x87_status() & 0x3F, 0x28);

    // The control word comes back with every exception masked, even one that was unmasked.
    x87_clear();
    x87_set_control(static_cast<std::uint16_t>(control & ~0x10));
    kaz_report_d(KAZ_STATUS_ERRDOM, 0, a, a, r, r, "vdLn");
    EXPECT_EQ(x87_control() & 0x3F, 0x3F);
    EXPECT_EQ(x87_status() & 0x3F, 0x01);
    x87_clear();
    x87_set_control(control);
  });
}

void exit_on_fpe(int) {
  const char text[] = "trap";
  [[maybe_unused]] ssize_t w = write(1, text, sizeof text - 1);
  _exit(42);
}

// Exit code of a child that reports `code` with `traps` unmasked: 42 when the trap fired.
int trap_run(int code, unsigned int traps) {
  const auto result = run_in_child({}, [code, traps] {
    struct sigaction sa {};
    sa.sa_handler = exit_on_fpe;
    sigaction(SIGFPE, &sa, nullptr);
    kazSetMode(KAZ_ERRMODE_EXCEPT | traps);
    double a[1] = {1}, r[1] = {2};
    kaz_report_d(code, 0, a, a, r, r, "vdLn");
    asm volatile("fnclex");
    return 0;
  });
  return result.exit_code;
}

TEST(ReportException, TrapFieldUnmasksTheMatchingException) {
  EXPECT_EQ(trap_run(KAZ_STATUS_ERRDOM, KAZ_TRAP_INVALID), 42);
  EXPECT_EQ(trap_run(KAZ_STATUS_SING, KAZ_TRAP_DIVBYZERO), 42);
  EXPECT_EQ(trap_run(KAZ_STATUS_OVERFLOW, KAZ_TRAP_OVERFLOW), 42);
  EXPECT_EQ(trap_run(KAZ_STATUS_UNDERFLOW, KAZ_TRAP_UNDERFLOW), 42);
  EXPECT_EQ(trap_run(KAZ_STATUS_OVERFLOW, KAZ_TRAP_DIVBYZERO | KAZ_TRAP_INVALID), 0);
  EXPECT_EQ(trap_run(KAZ_STATUS_ERRDOM, 0), 0);
  EXPECT_EQ(trap_run(77, KAZ_TRAP_MASK), 0);
}

}  // namespace
