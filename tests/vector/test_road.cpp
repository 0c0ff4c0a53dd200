// The road of an exported vector call: argument checks and their printed line, status words,
// the four calling forms, the mode form's merge and restore, and the choice of the slot per
// thread.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <climits>
#include <cmath>
#include <random>
#include <thread>
#include <utility>

#include "frame_support.h"
#include "runtime/cpu_type.h"
#include "tvx_vector.h"
#include "vector/frame/road.h"
#include "vector/frame/rows.h"

namespace {

using tvx::test::all_marked;
using tvx::test::marked;
using tvx::test::on_fresh_thread;
using tvx::test::parameter_line;
using tvx::test::same_bits;
using tvx::test::stdout_of;

// The four calling forms of one two-input function.
template <class T>
struct Forms {
  const char* name;
  bool subtract;
  void (*c)(int, const T*, const T*, T*);
  void (*m)(int, const T*, const T*, T*, unsigned int);
  void (*lc)(const int*, const T*, const T*, T*);
  void (*lm)(const int*, const T*, const T*, T*, const unsigned int*);
};

const Forms<double> kDoubleForms[] = {{"vdAdd", false, vdAdd, vmdAdd, vdadd, vmdadd},
                                      {"vdSub", true, vdSub, vmdSub, vdsub, vmdsub}};
const Forms<float> kFloatForms[] = {{"vsAdd", false, vsAdd, vmsAdd, vsadd, vmsadd},
                                    {"vsSub", true, vsSub, vmsSub, vssub, vmssub}};

constexpr int kFormCount = 4;
const char* const kFormNames[kFormCount] = {"C", "mode", "lower", "lower mode"};

template <class T>
void call(const Forms<T>& f, int form, int n, const T* a, const T* b, T* r,
          unsigned int mode = KAZ_HA) {
  switch (form) {
    case 0:
      f.c(n, a, b, r);
      break;
    case 1:
      f.m(n, a, b, r, mode);
      break;
    case 2:
      f.lc(&n, a, b, r);
      break;
    default:
      f.lm(&n, a, b, r, &mode);
      break;
  }
}

template <class T>
std::vector<T> sample(std::size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  std::uniform_int_distribution<int> expo(-30, 30);
  std::vector<T> v(n);
  for (auto& x : v) x = static_cast<T>(std::ldexp(mant(gen), expo(gen)));
  return v;
}

// ---- argument checks ------------------------------------------------------------------------

struct Fault {
  int n;
  bool a, b, r;  // which pointers are valid
  int position;
  int status;
};

// n first, then the inputs left to right, then the output; only the first fault counts.
const Fault kFaults[] = {
    {-1, false, false, false, 1, KAZ_STATUS_BADSIZE},
    {-7, true, true, true, 1, KAZ_STATUS_BADSIZE},
    {INT_MIN, true, false, true, 1, KAZ_STATUS_BADSIZE},
    {5, false, false, false, 2, KAZ_STATUS_BADMEM},
    {5, false, true, true, 2, KAZ_STATUS_BADMEM},
    {5, true, false, false, 3, KAZ_STATUS_BADMEM},
    {5, true, false, true, 3, KAZ_STATUS_BADMEM},
    {1, true, true, false, 4, KAZ_STATUS_BADMEM},
};

template <class T>
void check_faults(const Forms<T>& f) {
  const std::vector<T> a = sample<T>(8, 1), b = sample<T>(8, 2);
  for (const Fault& fault : kFaults) {
    for (int form = 0; form < kFormCount; ++form) {
      SCOPED_TRACE(std::string(f.name) + " form " + kFormNames[form] + " n " +
                   std::to_string(fault.n) + " position " + std::to_string(fault.position));
      std::vector<T> r = marked<T>(8);
      kazSetErrStatus(4321);
      kazSetMode(KAZ_LA);
      const unsigned int word = kazGetMode();
      const std::string out = stdout_of([&] {
        call(f, form, fault.n, fault.a ? a.data() : nullptr, fault.b ? b.data() : nullptr,
             fault.r ? r.data() : nullptr, KAZ_EP | KAZ_FLUSH_DENORMALS_ON | KAZ_TRAP_INVALID);
      });
      // Every form reports under the C-form name.
      EXPECT_EQ(out, parameter_line(fault.position, f.name));
      EXPECT_EQ(kazGetErrStatus(), fault.status);
      EXPECT_TRUE(all_marked(r));
      // A rejected mode-form call never touches the mode word.
      EXPECT_EQ(kazGetMode(), word);
    }
  }
}

TEST(RoadChecks, FaultsReportFirstBadArgumentWithStatus) {
  on_fresh_thread([] {
    for (const auto& f : kDoubleForms) check_faults(f);
    for (const auto& f : kFloatForms) check_faults(f);
  });
}

template <class T>
void check_empty_calls(const Forms<T>& f) {
  std::vector<T> a = sample<T>(4, 3), b = sample<T>(4, 4);
  for (int form = 0; form < kFormCount; ++form) {
    SCOPED_TRACE(std::string(f.name) + " form " + kFormNames[form]);
    std::vector<T> r = marked<T>(4);
    kazSetErrStatus(-77);
    const unsigned int word = kazGetMode();
    const std::string out = stdout_of([&] {
      call<T>(f, form, 0, nullptr, nullptr, nullptr, KAZ_EP | KAZ_FLUSH_DENORMALS_ON);
      call<T>(f, form, 0, a.data(), b.data(), r.data(), KAZ_EP | KAZ_FLUSH_DENORMALS_ON);
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(kazGetErrStatus(), -77);
    EXPECT_EQ(kazGetMode(), word);
    EXPECT_TRUE(all_marked(r));
  }
}

TEST(RoadChecks, ZeroLengthIsSilentAndLooksAtNothing) {
  on_fresh_thread([] {
    for (const auto& f : kDoubleForms) check_empty_calls(f);
    for (const auto& f : kFloatForms) check_empty_calls(f);
  });
}

// ---- the four forms -------------------------------------------------------------------------

template <class T>
void check_forms_agree(const Forms<T>& f) {
  for (int n : {1, 2, 7, 33, 100, 1000, 4099}) {
    const std::vector<T> a = sample<T>(n, 10 + n), b = sample<T>(n, 20 + n);
    for (int form = 0; form < kFormCount; ++form) {
      SCOPED_TRACE(std::string(f.name) + " form " + kFormNames[form] + " n " + std::to_string(n));
      // One element more than n: the call must stop at n.
      std::vector<T> r = marked<T>(static_cast<std::size_t>(n) + 1);
      // A good call prints nothing and leaves the status word as it found it.
      kazSetErrStatus(KAZ_STATUS_OVERFLOW);
      const std::string out =
          stdout_of([&] { call(f, form, n, a.data(), b.data(), r.data(), KAZ_LA); });
      EXPECT_EQ(out, "");
      EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_OVERFLOW);
      int wrong = 0;
      for (int i = 0; i < n; ++i) {
        const T want = f.subtract ? a[i] - b[i] : a[i] + b[i];
        if (!same_bits(r[i], want)) ++wrong;
      }
      EXPECT_EQ(wrong, 0);
      EXPECT_TRUE(all_marked(r, static_cast<std::size_t>(n)));
    }
  }
}

TEST(RoadForms, FourFormsGiveTheSameExactResults) {
  on_fresh_thread([] {
    for (const auto& f : kDoubleForms) check_forms_agree(f);
    for (const auto& f : kFloatForms) check_forms_agree(f);
  });
}

TEST(RoadForms, LowerCaseFormsReadScalarsByPointer) {
  on_fresh_thread([] {
    const std::vector<float> a = sample<float>(10, 7), b = sample<float>(10, 8);
    std::vector<float> r = marked<float>(10);
    const int n = 3;
    vssub(&n, a.data(), b.data(), r.data());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(r[i], a[i] - b[i]);
    EXPECT_TRUE(all_marked(r, 3));

    // The mode argument is read through its pointer: its denormal field outlives the call.
    kazSetMode(KAZ_LA);
    const unsigned int mode = KAZ_EP | KAZ_FLUSH_DENORMALS_ON;
    const int n2 = 6;
    vmssub(&n2, a.data(), b.data(), r.data(), &mode);
    EXPECT_EQ(kazGetMode(), KAZ_FLUSH_DENORMALS_ON | KAZ_ERRMODE_DEFAULT | KAZ_LA);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(r[i], a[i] - b[i]);
    EXPECT_TRUE(all_marked(r, 6));
  });
}

// ---- mode form ------------------------------------------------------------------------------

TEST(RoadModeForm, RestoreIsAMergeOfTheOldWord) {
  on_fresh_thread([] {
    std::vector<double> a = sample<double>(16, 40), b = sample<double>(16, 41), r(16);
    kazSetMode(KAZ_LA);
    const unsigned int la_word = KAZ_ERRMODE_DEFAULT | KAZ_LA;
    ASSERT_EQ(kazGetMode(), la_word);

    // Accuracy and error mode come back exactly.
    vmdAdd(16, a.data(), b.data(), r.data(), KAZ_HA);
    EXPECT_EQ(kazGetMode(), la_word);
    vmdAdd(16, a.data(), b.data(), r.data(), KAZ_EP | KAZ_ERRMODE_IGNORE);
    EXPECT_EQ(kazGetMode(), la_word);

    // A field that the old word had at zero stays as the mode switched it.
    vmdAdd(16, a.data(), b.data(), r.data(), KAZ_HA | KAZ_FLUSH_DENORMALS_ON);
    EXPECT_EQ(kazGetMode(), la_word | KAZ_FLUSH_DENORMALS_ON);
    vmdAdd(16, a.data(), b.data(), r.data(), KAZ_TRAP_OVERFLOW);
    EXPECT_EQ(kazGetMode(), la_word | KAZ_FLUSH_DENORMALS_ON | KAZ_TRAP_OVERFLOW);

    // A field the old word has set comes back even when the mode changed it.
    vmdAdd(16, a.data(), b.data(), r.data(), KAZ_FLUSH_DENORMALS_OFF | KAZ_TRAP_INVALID);
    EXPECT_EQ(kazGetMode(), la_word | KAZ_FLUSH_DENORMALS_ON | KAZ_TRAP_OVERFLOW);
  });
}

// ---- slot choice, seen through a row of recording kernels --------------------------------------

using KD = tvx::frame::K_vv_v<double>;
thread_local unsigned int t_mode_in_kernel = 0;

// Kernel of slot S: writes S into every element and notes the mode word it ran under.
template <int S>
void recorder(int n, const double*, const double*, double* r) {
  t_mode_in_kernel = kazGetMode();
  for (int i = 0; i < n; ++i) r[i] = S;
}

template <std::size_t... I>
tvx::frame::Row<KD> recording_row(std::index_sequence<I...>) {
  return {{&recorder<static_cast<int>(I)>...}, {static_cast<float>(I)...}};
}
const tvx::frame::Row<KD> kRecordingRow = recording_row(std::make_index_sequence<18>{});

// Slot that ran the last call on a buffer of n elements (-1 when the elements disagree).
int slot_run(int n, const std::vector<double>& r) {
  for (int i = 1; i < n; ++i) {
    if (r[i] != r[0]) return -1;
  }
  return static_cast<int>(r[0]);
}

int expected_slot(int accuracy) {
  return tvx_kaz_variant_index() + 6 * (accuracy - 1);
}

TEST(RoadSlots, SlotIsVariantPlusSixPerAccuracyStep) {
  on_fresh_thread([] {
    const double x[4] = {1, 2, 3, 4};
    std::vector<double> r(4);
    for (unsigned int acc : {KAZ_LA, KAZ_HA, KAZ_EP}) {
      kazSetMode(acc);
      for (int v = 0; v < 6; ++v) EXPECT_EQ(tvx_kaz_table_slot(v), v + 6 * (int(acc) - 1));
      tvx::frame::dispatch(kRecordingRow, 0, 4, x, x, r.data());
      EXPECT_EQ(slot_run(4, r), expected_slot(int(acc)));
    }
    // The map itself has no clamp.
    kazSetMode(5);
    EXPECT_EQ(tvx_kaz_table_slot(2), 26);
  });
}

TEST(RoadSlots, ModeFormRunsUnderTheMergedWord) {
  on_fresh_thread([] {
    const double x[3] = {1, 2, 3};
    std::vector<double> r(3);
    kazSetMode(KAZ_LA);
    tvx::frame::dispatch_mode(kRecordingRow, 0, KAZ_EP | KAZ_FLUSH_DENORMALS_ON, 3, x, x, r.data());
    EXPECT_EQ(slot_run(3, r), expected_slot(3));
    EXPECT_EQ(t_mode_in_kernel, KAZ_FLUSH_DENORMALS_ON | KAZ_ERRMODE_DEFAULT | KAZ_EP);
    EXPECT_EQ(kazGetMode(), KAZ_FLUSH_DENORMALS_ON | KAZ_ERRMODE_DEFAULT | KAZ_LA);

    // Accuracy 0 in the mode keeps the thread's accuracy.
    tvx::frame::dispatch_mode(kRecordingRow, 0, KAZ_ERRMODE_ERRNO, 3, x, x, r.data());
    EXPECT_EQ(slot_run(3, r), expected_slot(1));
    EXPECT_EQ(t_mode_in_kernel, KAZ_FLUSH_DENORMALS_ON | KAZ_ERRMODE_ERRNO | KAZ_LA);
    EXPECT_EQ(kazGetMode(), KAZ_FLUSH_DENORMALS_ON | KAZ_ERRMODE_DEFAULT | KAZ_LA);
  });
}

TEST(RoadSlots, AccuracyWarningOutsideEpOnly) {
  on_fresh_thread([] {
    const double x[2] = {1, 2};
    std::vector<double> r(2);
    for (unsigned int acc : {KAZ_LA, KAZ_HA}) {
      kazSetMode(acc);
      kazSetErrStatus(0);
      tvx::frame::dispatch(kRecordingRow, TVX_FLAG_EP_WARN, 2, x, x, r.data());
      EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_EP_ONLY_WARNING);
      EXPECT_EQ(slot_run(2, r), expected_slot(int(acc)));  // the call goes on
    }
    kazSetMode(KAZ_EP);
    kazSetErrStatus(KAZ_STATUS_SING);
    tvx::frame::dispatch(kRecordingRow, TVX_FLAG_EP_WARN, 2, x, x, r.data());
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);
    // Rows without the flag never warn.
    kazSetMode(KAZ_LA);
    tvx::frame::dispatch(kRecordingRow, 0, 2, x, x, r.data());
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);

    // The mode form warns by the accuracy of its mode.
    tvx::frame::dispatch_mode(kRecordingRow, TVX_FLAG_EP_WARN, KAZ_EP, 2, x, x, r.data());
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_SING);
    kazSetMode(KAZ_EP);
    tvx::frame::dispatch_mode(kRecordingRow, TVX_FLAG_EP_WARN, KAZ_HA, 2, x, x, r.data());
    EXPECT_EQ(kazGetErrStatus(), KAZ_STATUS_EP_ONLY_WARNING);
  });
}

TEST(RoadSlots, CellsWithoutCodeAreNeverCalled) {
  on_fresh_thread([] {
    tvx::frame::Row<KD> row = kRecordingRow;
    for (int s : {4, 10, 16}) row.kernels[s] = reinterpret_cast<KD>(tvx::frame::kVariant4Marker);
    // The empty variant-4 column runs column 0 of the same accuracy.
    for (unsigned int acc : {KAZ_LA, KAZ_HA, KAZ_EP}) {
      kazSetMode(acc);
      EXPECT_EQ(tvx::frame::select_slot(row, 4), 6 * (int(acc) - 1));
      EXPECT_EQ(tvx::frame::select_slot(row, 3), 3 + 6 * (int(acc) - 1));
    }
    // An accuracy past EP would index past the row: column 0 at HA runs instead.
    const double x[2] = {1, 2};
    std::vector<double> r(2);
    for (unsigned int acc : {4u, 15u}) {
      kazSetMode(acc);
      EXPECT_EQ(tvx::frame::select_slot(row, 5), 6);
      tvx::frame::dispatch(row, 0, 2, x, x, r.data());
      EXPECT_EQ(slot_run(2, r), 6);
    }
    std::vector<double> a = sample<double>(5, 50), b = sample<double>(5, 51), s(5);
    vdAdd(5, a.data(), b.data(), s.data());
    for (int i = 0; i < 5; ++i) EXPECT_EQ(s[i], a[i] + b[i]);
  });
}

// Two threads at once, each under its own accuracy, each gets its own slot and keeps its own
// word and status.
TEST(RoadThreads, EachThreadRunsItsOwnAccuracy) {
  // Resolve the process-wide caches before the threads race for them.
  const double x[2] = {1, 2};
  double y[2];
  vdAdd(2, x, x, y);

  std::atomic<int> ready{0};
  auto worker = [&](unsigned int accuracy, int status, int* failures) {
    kazSetMode(accuracy);
    const unsigned int word = kazGetMode();
    std::vector<double> r(64), a = sample<double>(64, accuracy), b = sample<double>(64, status);
    std::vector<double> sum(64);
    ready.fetch_add(1);
    while (ready.load() < 2) std::this_thread::yield();
    for (int it = 0; it < 3000; ++it) {
      kazSetErrStatus(status);
      tvx::frame::dispatch(kRecordingRow, 0, 64, a.data(), b.data(), r.data());
      if (slot_run(64, r) != expected_slot(int(accuracy))) ++*failures;
      const unsigned int other = accuracy == KAZ_LA ? KAZ_EP : KAZ_LA;
      tvx::frame::dispatch_mode(kRecordingRow, 0, other, 64, a.data(), b.data(), r.data());
      if (slot_run(64, r) != expected_slot(int(other))) ++*failures;
      vmdAdd(64, a.data(), b.data(), sum.data(), other);
      if (sum[63] != a[63] + b[63]) ++*failures;
      if (kazGetMode() != word || kazGetErrStatus() != status) ++*failures;
    }
  };
  int fail_la = 0, fail_ep = 0;
  std::thread t1(worker, KAZ_LA, 11, &fail_la);
  std::thread t2(worker, KAZ_EP, 22, &fail_ep);
  t1.join();
  t2.join();
  EXPECT_EQ(fail_la, 0);
  EXPECT_EQ(fail_ep, 0);
}

}  // namespace
