// vdExp on long vectors, on one thread and with the default team, on a quiet machine and with
// every core kept busy by other processes.
//
// Rows: one_thread and default (the vector domain's team as the settings give it), each alone
// and under_load, where the program starts one busy process per online processor for the row
// and kills it afterwards; two_callers runs the default call from two threads of the caller at
// once. Every call is timed on its own: the counters are the mean, the 99th percentile and the
// best time of one call in microseconds, and the mean in nanoseconds per element.
//
// The load processes only spin on arithmetic; each ends itself after kLoadSeconds even if this
// program is killed, and is also killed when its parent dies.
//
// On a machine shared with other work, the rows without load can be approximated as on an idle
// machine by running them under a real-time policy (`chrt -f 10 ... --benchmark_filter=
// 'run/(one_thread|default)/'`): this program's threads then take a processor whenever they are
// ready. The under_load rows mean something only without it (the load processes always run under
// ordinary time sharing, so a real-time caller would not feel them).
#include <benchmark/benchmark.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "runtime/settings.h"
#include "tvx_vector.h"

namespace {

constexpr unsigned kLoadSeconds = 60;

// ---- load processes ---------------------------------------------------------------------------
std::vector<pid_t> g_load;

[[noreturn]] void spin_forever() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // Ordinary time sharing even when this program runs under a real-time policy (chrt): a
  // real-time busy loop would hold a processor for good.
  const sched_param normal{};
  sched_setscheduler(0, SCHED_OTHER, &normal);
  alarm(kLoadSeconds);  // the default action of SIGALRM ends the process
  volatile double x = 1.0;
  for (;;) x = x * 1.0000001 + 1e-9;
}

void stop_load() {
  for (pid_t p : g_load) kill(p, SIGKILL);
  for (pid_t p : g_load) waitpid(p, nullptr, 0);
  g_load.clear();
}

void start_load() {
  stop_load();
  const long cpus = sysconf(_SC_NPROCESSORS_ONLN);
  for (long i = 0; i < cpus; ++i) {
    const pid_t p = fork();
    if (p == 0) spin_forever();
    if (p > 0) g_load.push_back(p);
  }
  // Let the scheduler see them as long-running before the first timed call.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

const bool kStopAtExit = [] {
  std::atexit(stop_load);
  return true;
}();

// ---- the calls --------------------------------------------------------------------------------
struct Data {
  std::vector<double> a, r;
  explicit Data(int n) : a(n), r(n) {
    for (int i = 0; i < n; ++i) a[i] = -50.0 + 100.0 * ((i * 7919) % 10007) / 10007.0;
  }
};

enum Team { kOneThread, kDefault };

void run(benchmark::State& st, Team team, bool load) {
  const int n = static_cast<int>(st.range(0));
  static std::mutex data_lock;
  static std::vector<Data*> data_by_thread;
  Data* d;
  {
    std::lock_guard<std::mutex> hold(data_lock);
    if (data_by_thread.size() <= static_cast<std::size_t>(st.thread_index()))
      data_by_thread.resize(st.thread_index() + 1, nullptr);
    Data*& slot = data_by_thread[st.thread_index()];
    if (slot == nullptr || slot->a.size() != static_cast<std::size_t>(n)) {
      delete slot;
      slot = new Data(n);
    }
    d = slot;
  }
  // The thread-local override sets this caller's team; 0 returns it to the settings.
  tvx_set_num_threads_local(team == kOneThread ? 1 : 0);
  if (load && st.thread_index() == 0) start_load();
  for (int i = 0; i < 20; ++i) vdExp(n, d->a.data(), d->r.data());

  std::vector<double> us;
  us.reserve(static_cast<std::size_t>(st.max_iterations));
  for (auto _ : st) {
    const auto t0 = std::chrono::steady_clock::now();
    vdExp(n, d->a.data(), d->r.data());
    const auto t1 = std::chrono::steady_clock::now();
    const double s = std::chrono::duration<double>(t1 - t0).count();
    st.SetIterationTime(s);
    us.push_back(s * 1e6);
  }
  if (load && st.thread_index() == 0) stop_load();
  tvx_set_num_threads_local(0);

  std::sort(us.begin(), us.end());
  double sum = 0;
  for (double u : us) sum += u;
  const double mean = sum / static_cast<double>(us.size());
  const std::size_t k99 = std::min(us.size() - 1, (us.size() * 99) / 100);
  using C = benchmark::Counter;
  st.counters["mean_us"] = C(mean, C::kAvgThreads);
  st.counters["p99_us"] = C(us[k99], C::kAvgThreads);
  st.counters["best_us"] = C(us.front(), C::kAvgThreads);
  st.counters["ns_per_elt"] = C(mean * 1e3 / n, C::kAvgThreads);
}

void args(benchmark::internal::Benchmark* b) {
  b->ArgName("n")->UseManualTime()->Unit(benchmark::kMicrosecond);
}

// Iterations bound each row to a few seconds even under load (about 5 ns per element).
BENCHMARK_CAPTURE(run, one_thread, kOneThread, false)->Apply(args)->Arg(100000)->Iterations(4000);
BENCHMARK_CAPTURE(run, default, kDefault, false)->Apply(args)->Arg(100000)->Iterations(4000);
BENCHMARK_CAPTURE(run, one_thread_under_load, kOneThread, true)
    ->Apply(args)
    ->Arg(100000)
    ->Iterations(4000);
BENCHMARK_CAPTURE(run, default_under_load, kDefault, true)
    ->Apply(args)
    ->Arg(100000)
    ->Iterations(4000);
BENCHMARK_CAPTURE(run, two_callers, kDefault, false)
    ->Apply(args)
    ->Arg(100000)
    ->Iterations(4000)
    ->Threads(2);
BENCHMARK_CAPTURE(run, one_thread, kOneThread, false)->Apply(args)->Arg(1000000)->Iterations(400);
BENCHMARK_CAPTURE(run, default, kDefault, false)->Apply(args)->Arg(1000000)->Iterations(400);
BENCHMARK_CAPTURE(run, one_thread_under_load, kOneThread, true)
    ->Apply(args)
    ->Arg(1000000)
    ->Iterations(400);
BENCHMARK_CAPTURE(run, default_under_load, kDefault, true)
    ->Apply(args)
    ->Arg(1000000)
    ->Iterations(400);
BENCHMARK_CAPTURE(run, two_callers, kDefault, false)
    ->Apply(args)
    ->Arg(1000000)
    ->Iterations(400)
    ->Threads(2);

}  // namespace
