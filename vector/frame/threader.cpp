// The threader's cost model (what one fork and join costs on this machine) and the team that runs
// the pieces of threaded calls.
#include "vector/frame/threader.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>

namespace {
// The factor, valid once g_logical is non-zero.
std::atomic<float> g_factor{0.0f};
std::atomic<int> g_logical{0};

// ---- the team ---------------------------------------------------------------------------------
//
// Helper threads, started on first need and kept for the life of the process, share out the
// pieces of one threaded call at a time with the caller. The call's state is one 64-bit word,
// `claim`: the team size in the high half and the count of unclaimed pieces in the low half. A
// thread takes piece (pieces - remaining) by lowering the count with a compare-exchange, and only
// then reads the job: while a piece is unclaimed the caller cannot return, so a successful claim
// always sees the job that the count belongs to. The caller takes pieces the same way, and once
// none is left waits only for pieces that helpers hold. A helper that wakes late finds nothing to
// claim and goes back to sleep without having delayed the call.
//
// Idle helpers keep polling for 50 us after a call (calls on long vectors tend to come in loops),
// yielding the processor between polls, then sleep on a futex. On a quiet machine the yield
// returns at once and the next call finds its helpers awake; on a machine whose cores are busy
// with other work the helper gives its time slice back instead of taking it from the caller or
// from that work.
constexpr int kMaxHelpers = 255;
constexpr auto kIdleSpin = std::chrono::microseconds(50);
constexpr auto kJoinSpin = std::chrono::microseconds(50);

struct alignas(64) Pool {
  std::atomic<int> busy{0};     // 1 while a call holds the team
  std::atomic<int> helpers{0};  // helper threads started; helper i has number i + 1
  alignas(64) std::atomic<std::uint64_t> claim{0};
  alignas(64) std::atomic<std::uint32_t> wake{0};  // futex word: bumped for every call
  std::atomic<int> sleepers{0};                    // helpers asleep or about to sleep on wake
  alignas(64) std::atomic<std::uint32_t> done{0};  // futex word: pieces finished
  std::atomic<int> joiner{0};                      // 1 while the caller sleeps on done
  alignas(64) std::atomic<std::uint64_t> last{0};  // (piece + 1) << 32 | status, highest piece
  // The running call, written by the holder before it publishes `claim`.
  int (*run)(const void*, int) = nullptr;
  const void* job = nullptr;
  int pieces = 0;
};
Pool g_pool;

long futex(std::atomic<std::uint32_t>* word, int op, std::uint32_t value) {
  return syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), op | FUTEX_PRIVATE_FLAG, value,
                 nullptr, nullptr, 0);
}

inline void cpu_relax() {
  __builtin_ia32_pause();
}

// Keeps the highest piece with a condition, so that the result matches a one-thread run.
void fold_status(int k, int status) {
  const std::uint64_t mine =
      (static_cast<std::uint64_t>(k) + 1) << 32 | static_cast<std::uint32_t>(status);
  std::uint64_t seen = g_pool.last.load(std::memory_order_relaxed);
  while (seen < mine && !g_pool.last.compare_exchange_weak(seen, mine, std::memory_order_relaxed)) {
  }
}

// Claims and runs pieces of the current call until none is left; `number` is 0 for the caller.
// The pieces finished and the highest one with a status are published once, when the thread runs
// out of pieces: per piece, the only line that moves between processors is the claim word. The
// call cannot end before that publication, so the job read after a claim stays valid throughout.
void work(int number) {
  std::uint64_t w = g_pool.claim.load(std::memory_order_acquire);
  int pieces = 0;
  std::uint32_t finished = 0;
  int worst_piece = -1;
  int worst_status = 0;
  for (;;) {
    const auto remaining = static_cast<std::uint32_t>(w);
    if (remaining == 0 || static_cast<int>(w >> 32) <= number) break;
    if (!g_pool.claim.compare_exchange_weak(w, w - 1, std::memory_order_acquire,
                                            std::memory_order_acquire))
      continue;
    pieces = g_pool.pieces;
    const int k = pieces - static_cast<int>(remaining);
    const int status = g_pool.run(g_pool.job, k);
    if (status != 0 && k > worst_piece) {
      worst_piece = k;
      worst_status = status;
    }
    ++finished;
    w = g_pool.claim.load(std::memory_order_acquire);
  }
  if (finished == 0) return;
  if (worst_piece >= 0) fold_status(worst_piece, worst_status);
  const std::uint32_t now = g_pool.done.fetch_add(finished) + finished;
  if (now == static_cast<std::uint32_t>(pieces) && g_pool.joiner.load() != 0)
    futex(&g_pool.done, FUTEX_WAKE, 1);
}

void* helper_main(void* arg) {
  const int number = static_cast<int>(reinterpret_cast<std::intptr_t>(arg));
  std::uint32_t seen = g_pool.wake.load(std::memory_order_acquire);
  for (;;) {
    work(number);
    // Wait for the next call: poll briefly, then sleep.
    const auto until = std::chrono::steady_clock::now() + kIdleSpin;
    for (int i = 0; g_pool.wake.load(std::memory_order_acquire) == seen; ++i) {
      sched_yield();
      if (std::chrono::steady_clock::now() > until) {
        g_pool.sleepers.fetch_add(1);
        while (g_pool.wake.load() == seen) futex(&g_pool.wake, FUTEX_WAIT, seen);
        g_pool.sleepers.fetch_sub(1);
      }
    }
    seen = g_pool.wake.load(std::memory_order_acquire);
  }
  return nullptr;
}

// Starts helpers until there are `wanted` (under the busy flag). Helpers block every signal, so
// the caller's handlers run on the caller's threads only. Returns the helpers available.
int ensure_helpers(int wanted) {
  int have = g_pool.helpers.load(std::memory_order_relaxed);
  if (wanted > kMaxHelpers) wanted = kMaxHelpers;
  if (have >= wanted) return have;
  sigset_t all, old;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &old);
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  while (have < wanted) {
    pthread_t t;
    void* number = reinterpret_cast<void*>(static_cast<std::intptr_t>(have + 1));
    if (pthread_create(&t, &attr, helper_main, number) != 0) break;
    ++have;
  }
  pthread_attr_destroy(&attr);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  g_pool.helpers.store(have, std::memory_order_release);
  return have;
}

// In a child process the helpers are gone and no call is running.
void forget_helpers_in_child() {
  g_pool.busy.store(0);
  g_pool.helpers.store(0);
  g_pool.claim.store(0);
  g_pool.sleepers.store(0);
  g_pool.joiner.store(0);
}
const bool kAtFork = [] {
  pthread_atfork(nullptr, nullptr, forget_helpers_in_child);
  return true;
}();

int team_run(int team, int pieces, int (*run)(const void*, int), const void* job) {
  if (g_pool.busy.exchange(1, std::memory_order_acquire) != 0) {
    // Another call holds the team: run every piece here, folding as the team would.
    int status = 0;
    for (int k = 0; k < pieces; ++k) {
      const int s = run(job, k);
      if (s != 0) status = s;
    }
    return status;
  }
  const int helpers = ensure_helpers(team - 1);
  if (team > helpers + 1) team = helpers + 1;
  g_pool.run = run;
  g_pool.job = job;
  g_pool.pieces = pieces;
  g_pool.done.store(0, std::memory_order_relaxed);
  g_pool.last.store(0, std::memory_order_relaxed);
  g_pool.claim.store(static_cast<std::uint64_t>(team) << 32 | static_cast<std::uint32_t>(pieces),
                     std::memory_order_release);
  if (team > 1) {
    g_pool.wake.fetch_add(1);
    // Every sleeper: the kernel wakes them in no particular order, and only helpers numbered
    // below the team size take part.
    if (g_pool.sleepers.load() != 0) futex(&g_pool.wake, FUTEX_WAKE, INT_MAX);
  }
  work(0);
  // Every piece is claimed; wait for the ones that helpers are still running.
  const auto target = static_cast<std::uint32_t>(pieces);
  if (g_pool.done.load(std::memory_order_acquire) != target) {
    const auto until = std::chrono::steady_clock::now() + kJoinSpin;
    int i = 0;
    while (g_pool.done.load(std::memory_order_acquire) != target &&
           ((++i & 63) != 0 || std::chrono::steady_clock::now() < until))
      cpu_relax();
    g_pool.joiner.store(1);
    for (std::uint32_t d; (d = g_pool.done.load()) != target;) futex(&g_pool.done, FUTEX_WAIT, d);
    g_pool.joiner.store(0);
  }
  const std::uint64_t last = g_pool.last.load(std::memory_order_relaxed);
  g_pool.busy.store(0, std::memory_order_release);
  return static_cast<int>(static_cast<std::uint32_t>(last));
}

}  // namespace

extern "C" {

// Fork cost estimate in cycles: crossing NUMA nodes (9000 a unit), sibling hardware threads
// (500000) and the cores of a node (60000), each weighted by its share of the P - 1 other
// processors; the factor is two over the sum, so that one thread pays for each half fork of work.
float tvx_kaz_fork_factor_of(int logical, int numa, int cores_per_numa) {
  const int p = logical;
  const int s = numa < 1 ? 1 : numa;
  const int q = s * (cores_per_numa < 1 ? 1 : cores_per_numa);
  if (p <= 1) return 0.0f;
  const int b = p / q;
  const double d = 1.0 / (p - 1);
  const float a = static_cast<float>((s - 1) * d * (p / s)) * 9000.0f;
  const float x = static_cast<float>((b - 1) * d) * 500000.0f;
  const float y = static_cast<float>((q / s - 1) * b * d) * 60000.0f;
  const float sum = (a + x) + y;
  // A topology with fewer logical processors than cores makes no sense of the model: no team.
  if (!(sum > 0.0f)) return 0.0f;
  return 2.0f / sum;
}

float tvx_kaz_fork_factor(void) {
  if (g_logical.load(std::memory_order_acquire) != 0)
    return g_factor.load(std::memory_order_relaxed);
  const int p = tvx_topology_logical();
  g_factor.store(tvx_kaz_fork_factor_of(p, tvx_topology_numa(), tvx_topology_cores_per_numa()),
                 std::memory_order_relaxed);
  g_logical.store(p, std::memory_order_release);
  return g_factor.load(std::memory_order_relaxed);
}

int tvx_kaz_useful_threads(int threads, int n, float cost, float factor) {
  const float work = static_cast<float>(n) * cost * factor;
  int useful = 1;
  if (work >= static_cast<float>(INT_MAX)) {
    useful = INT_MAX;
  } else if (work >= 1.0f) {
    useful = static_cast<int>(work);
  }
  return threads > useful ? useful : threads;
}

int tvx_kaz_team_run(int team, int pieces, int (*run)(const void*, int), const void* job) {
  return team_run(team, pieces, run, job);
}

int tvx_kaz_team_helpers(void) {
  return g_pool.helpers.load(std::memory_order_acquire);
}

}  // extern "C"
