// Messages, parameter-error reporting, exit hook, spin locks, environment reads, bounded string
// helpers, and the library's start and stop.
#include "runtime/report.h"

#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct MessageEntry {
  int number;
  const char* text;
};

// The numbered texts. Numbers without an entry print nothing but the newline.
constexpr MessageEntry kMessages[] = {
    {0, ""},
    {6, "Orvane Tarvex ERROR: Parameter %d was incorrect on entry to %s."},
    {7, "Orvane Tarvex INTERNAL ERROR: Condition %d detected in function %s."},
    {8, "Orvane Tarvex INTERNAL ERROR: Insufficient workspace available in function %s."},
    {9, "Orvane Tarvex ERROR: Incompatible optional parameters on entry to %s."},
    {748, "Error (KAZ_STATUS_BADSIZE) in %s: array size %d is not positive."},
    {749, "Error (KAZ_STATUS_BADMEM) in %s: NULL pointer is passed."},
    {750, "Error (KAZ_STATUS_ERRDOM) in %s: argument is out of domain."},
    {751, "Error (KAZ_STATUS_SING) in %s: argument caused singularity."},
    {752, "Error (KAZ_STATUS_OVERFLOW) in %s: argument caused overflow."},
    {753, "Error (KAZ_STATUS_UNDERFLOW) in %s: argument caused underflow."},
    {754, "Unknown error in %s."},
    {755, "a(%d)=%g"},
    {756, "b(%d)=%g"},
    {757, "r(%d)=%g"},
    {758, "y(%d)=%g"},
    {759, "z(%d)=%g"},
    {760, "a(%d)=%g+i*%g"},
    {761, "b(%d)=%g+i*%g"},
    {762, "r(%d)=%g+i*%g"},
    {763, "y(%d)=%g+i*%g"},
    {764, "z(%d)=%g+i*%g"},
    {765, "r(%d)=%g+i*%g"},
    {766, "r(%d)=%g"},
    {773, "Orvane Tarvex FATAL ERROR: memory allocation error."},
    {1102, "Orvane Tarvex INTERNAL ERROR: Not enough work memory in function %s"},
    {1222,
     "Orvane Tarvex WARNING: incorrect conditional numerical reproducibility mode, "
     "TVX_CBWR_AUTO is set"},
    {1223,
     "Orvane Tarvex FATAL ERROR: This system does not meet the minimum requirements for use of "
     "the Orvane(R) Tarvex Library."},
    {1225, "Orvane Tarvex INTERNAL ERROR: Issue accessing coprocessor %s."},
    {1450,
     "The processor must support the Orvane(R) Streaming SIMD 3 Extensions (Orvane(R) SSE3) "
     "instructions."},
    {1453,
     "Orvane Tarvex WARNING: Support of Orvane(R) Advanced Vector Extensions (Orvane(R) AVX) "
     "enabled only processors has been deprecated. Tarvex Math Library will use Orvane(R) "
     "Streaming SIMD Extensions 4.2 (Orvane(R) SSE4.2) instructions instead."},
    {1454,
     "Orvane Tarvex WARNING: Support of Orvane(R) Supplemental Streaming SIMD Extensions 3 "
     "(Orvane(R) SSSE3) enabled only processors has been deprecated. Tarvex Math Library will use "
     "Orvane(R) Streaming SIMD 2 Extensions (Orvane(R) SSE2) instructions instead."},
};

// A message holds up to 512 characters; the buffer has room for the terminator besides.
constexpr int kMessageBufferSize = 512;
// Shared by all threads without a lock: concurrent messages may mix, as documented.
char g_message_buffer[kMessageBufferSize + 1];

// A 64-bit report value in the range that %d prints.
int saturated(std::int64_t v) {
  if (v > INT32_MAX) return INT32_MAX;
  if (v < INT32_MIN) return INT32_MIN;
  return static_cast<int>(v);
}

std::atomic<tvx_param_error_fn> g_param_hook{nullptr};
std::atomic<tvx_exit_fn> g_exit_hook{nullptr};
std::atomic<tvx_constraint_handler_fn> g_constraint_handler{nullptr};
volatile std::int32_t g_hook_lock = 0;

void constraint(const char* text, int code) {
  tvx_constraint_handler_fn h = g_constraint_handler.load(std::memory_order_acquire);
  if (h != nullptr) h(text, code);
}

// ---- stop lists ----
struct StopEntry {
  tvx_stop_fn fn;
  void* context;
};
constexpr int kStopEarly = 8;
constexpr int kStopLate = 32;
StopEntry g_stop_early[kStopEarly];
StopEntry g_stop_late[kStopLate];
int g_stop_early_count = 0;
int g_stop_late_count = 0;
volatile std::int32_t g_stop_lock = 0;
std::atomic<int> g_stopping{0};

constexpr int kThreadExitMax = 16;
std::atomic<tvx_thread_exit_fn> g_thread_exit[kThreadExitMax];
std::atomic<int> g_thread_exit_count{0};

// Runs the per-thread clean-ups when a thread that used the library ends.
struct ThreadExitRunner {
  bool armed = false;
  ~ThreadExitRunner() {
    if (!armed) return;
    int n = g_thread_exit_count.load(std::memory_order_acquire);
    if (n > kThreadExitMax) n = kThreadExitMax;  // a failed registration counted past the end
    for (int i = 0; i < n; ++i) {
      tvx_thread_exit_fn fn = g_thread_exit[i].load(std::memory_order_acquire);
      if (fn != nullptr) fn();
    }
  }
};
thread_local ThreadExitRunner t_exit_runner;

}  // namespace

extern "C" {

const char* tvx_message_text(int number) {
  for (const MessageEntry& e : kMessages) {
    if (e.number == number) return e.text;
  }
  return nullptr;
}

void tvx_print_message(int stream_flag, int number, int argc, ...) {
  (void)stream_flag;
  (void)argc;
  const char* format = tvx_message_text(number);
  if (format == nullptr || number == 0 || number < 0 || number >= TVX_MSG_TABLE_SIZE) {
    std::fputs("\n", stdout);
    std::fflush(nullptr);
    return;
  }
  va_list args;
  va_start(args, argc);
  va_list copy;
  va_copy(copy, args);
  const int needed = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (needed > kMessageBufferSize) {
    std::printf("\nTVX INTERNAL ERROR: message buffer overflow.");
    std::printf("\n       Lenght: %d   Buffer size: %d\n", needed, kMessageBufferSize);
  }
  std::vsnprintf(g_message_buffer, sizeof g_message_buffer, format, args);
  va_end(args);
  std::fputs(g_message_buffer, stdout);
  std::fputs("\n", stdout);
  std::fflush(nullptr);
}

int tvx_param_error_default(const char* name, const std::int64_t* info, int length) {
  if (name == nullptr || info == nullptr || length < 0) return 0;
  char local[21];
  const std::size_t limit = length < 20 ? static_cast<std::size_t>(length) : 20;
  std::size_t len = 0;
  while (len < limit && name[len] != '\0') ++len;
  std::memcpy(local, name, len);
  local[len] = '\0';
  tvx_print_message(0, TVX_MSG_NEWLINE, 0);
  const std::int64_t v = *info;
  if (v == 1000) {
    tvx_print_message(0, TVX_MSG_INSUFFICIENT_WORKSPACE, 1, local);
  } else if (v == 1001) {
    tvx_print_message(0, TVX_MSG_INCOMPATIBLE_OPTIONAL, 1, local);
  } else if (v == 1225 || v == 1102) {
    tvx_print_message(0, static_cast<int>(v), 1, local);
  } else if (v > 0) {
    tvx_print_message(0, TVX_MSG_PARAM_INCORRECT, 2, saturated(v), local);
  } else {
    // -v overflows for the most negative value; that one prints as the largest int.
    tvx_print_message(0, TVX_MSG_INTERNAL_CONDITION, 2, v == INT64_MIN ? INT32_MAX : saturated(-v),
                      local);
  }
  return 0;
}

void tvx_param_error_install_default(tvx_param_error_fn fn) {
  if (g_param_hook.load(std::memory_order_acquire) != nullptr) return;
  tvx_lock(&g_hook_lock);
  if (g_param_hook.load(std::memory_order_relaxed) == nullptr) {
    g_param_hook.store(fn != nullptr ? fn : tvx_param_error_default, std::memory_order_release);
  }
  tvx_unlock(&g_hook_lock);
}

tvx_param_error_fn tvx_param_error_set(tvx_param_error_fn fn) {
  tvx_lock(&g_hook_lock);
  tvx_param_error_fn old = g_param_hook.exchange(fn, std::memory_order_acq_rel);
  tvx_unlock(&g_hook_lock);
  return old != nullptr ? old : tvx_param_error_default;
}

void tvx_param_error_report(const char* name, const std::int64_t* info, int length) {
  if (name == nullptr || info == nullptr) return;
  tvx_param_error_fn fn = g_param_hook.load(std::memory_order_acquire);
  if (fn == nullptr) fn = tvx_param_error_default;
  fn(name, info, length);
}

int tvx_null_pointer_report(const void* pointer, const char* name) {
  if (pointer != nullptr) return 0;
  const std::int64_t info = TVX_MSG_NOT_ENOUGH_WORK_MEMORY;
  tvx_param_error_report(name, &info, static_cast<int>(tvx_strnlen_s(name, 50)));
  return 1;
}

void tvx_exit(int code) {
  tvx_exit_fn hook = g_exit_hook.load(std::memory_order_acquire);
  if (hook != nullptr) hook(code);
  std::fflush(nullptr);
  _exit(code);
}

void tvx_set_exit_hook(tvx_exit_fn fn) {
  tvx_lock(&g_hook_lock);
  g_exit_hook.store(fn, std::memory_order_release);
  tvx_unlock(&g_hook_lock);
}

void tvx_lock(volatile std::int32_t* word) {
  auto try_once = [word]() {
    std::int32_t expected = 0;
    return __atomic_compare_exchange_n(word, &expected, 1, false, __ATOMIC_ACQUIRE,
                                       __ATOMIC_RELAXED);
  };
  if (try_once()) return;
  for (int i = 0; i < 5000; ++i) {
    if (__atomic_load_n(word, __ATOMIC_RELAXED) == 0 && try_once()) return;
    __builtin_ia32_pause();
  }
  for (;;) {
    if (__atomic_load_n(word, __ATOMIC_RELAXED) == 0 && try_once()) return;
    sched_yield();
  }
}

void tvx_unlock(volatile std::int32_t* word) {
  __atomic_store_n(word, 0, __ATOMIC_RELEASE);
}

int tvx_getenv(const char* name, char* buffer, int size) {
  if (buffer != nullptr && size > 0) buffer[0] = '\0';
  if (name == nullptr) return 0;
  const char* value = std::getenv(name);
  if (value == nullptr || value[0] == '\0') return 0;
  const std::size_t len = std::strlen(value);
  if (buffer == nullptr || size <= 0 || len >= static_cast<std::size_t>(size)) {
    const std::size_t capped = len > 0x7fffffff ? 0x7fffffff : len;
    return -static_cast<int>(capped);
  }
  std::memcpy(buffer, value, len + 1);
  return static_cast<int>(len);
}

tvx_constraint_handler_fn tvx_set_constraint_handler(tvx_constraint_handler_fn fn) {
  return g_constraint_handler.exchange(fn, std::memory_order_acq_rel);
}

std::size_t tvx_strnlen_s(const char* s, std::size_t dmax) {
  if (s == nullptr) return 0;
  if (dmax == 0) {
    constraint("strnlen_s: dmax is 0", 401);
    return 0;
  }
  if (dmax > TVX_STRING_MAX) {
    constraint("strnlen_s: dmax exceeds max", 403);
    return 0;
  }
  std::size_t n = 0;
  while (n < dmax && s[n] != '\0') ++n;
  return n;
}

static bool ranges_overlap(const void* a, std::size_t alen, const void* b, std::size_t blen) {
  const auto pa = reinterpret_cast<std::uintptr_t>(a);
  const auto pb = reinterpret_cast<std::uintptr_t>(b);
  return pa < pb + blen && pb < pa + alen;
}

int tvx_strncpy_s(char* dest, std::size_t dmax, const char* src, std::size_t slen) {
  if (dest == nullptr) {
    constraint("strncpy_s: dest is null", 400);
    return 400;
  }
  if (dmax == 0) {
    constraint("strncpy_s: dmax is 0", 401);
    return 401;
  }
  if (dmax > TVX_STRING_MAX) {
    constraint("strncpy_s: dmax exceeds max", 403);
    return 403;
  }
  if (src == nullptr) {
    dest[0] = '\0';
    constraint("strncpy_s: src is null", 400);
    return 400;
  }
  std::size_t n = 0;
  while (n < slen && n < TVX_STRING_MAX && src[n] != '\0') ++n;
  if (ranges_overlap(dest, dmax, src, n + 1)) {
    dest[0] = '\0';
    constraint("strncpy_s: overlapping objects", 404);
    return 404;
  }
  if (n >= dmax) {
    dest[0] = '\0';
    constraint("strncpy_s: not enough space for src", 406);
    return 406;
  }
  std::memcpy(dest, src, n);
  dest[n] = '\0';
  return 0;
}

int tvx_strncat_s(char* dest, std::size_t dmax, const char* src, std::size_t slen) {
  if (dest == nullptr) {
    constraint("strncat_s: dest is null", 400);
    return 400;
  }
  if (dmax == 0) {
    constraint("strncat_s: dmax is 0", 401);
    return 401;
  }
  if (dmax > TVX_STRING_MAX) {
    constraint("strncat_s: dmax exceeds max", 403);
    return 403;
  }
  if (src == nullptr) {
    dest[0] = '\0';
    constraint("strncat_s: src is null", 400);
    return 400;
  }
  std::size_t have = 0;
  while (have < dmax && dest[have] != '\0') ++have;
  if (have == dmax) {
    dest[0] = '\0';
    constraint("strncat_s: dest is unterminated", 407);
    return 407;
  }
  std::size_t n = 0;
  while (n < slen && n < TVX_STRING_MAX && src[n] != '\0') ++n;
  if (ranges_overlap(dest, dmax, src, n + 1)) {
    dest[0] = '\0';
    constraint("strncat_s: overlapping objects", 404);
    return 404;
  }
  if (have + n >= dmax) {
    dest[0] = '\0';
    constraint("strncat_s: not enough space for src", 406);
    return 406;
  }
  std::memcpy(dest + have, src, n);
  dest[have + n] = '\0';
  return 0;
}

int tvx_memcpy_s(void* dest, std::size_t dmax, const void* src, std::size_t smax) {
  if (dest == nullptr) {
    constraint("memcpy_s: dest is NULL", 400);
    return 400;
  }
  if (dmax == 0) {
    constraint("memcpy_s: dmax is 0", 401);
    return 401;
  }
  if (src == nullptr) {
    std::memset(dest, 0, dmax);
    constraint("memcpy_s: src is NULL", 400);
    return 400;
  }
  if (smax == 0) {
    std::memset(dest, 0, dmax);
    constraint("memcpy_s: smax is 0", 401);
    return 401;
  }
  if (smax > dmax) {
    std::memset(dest, 0, dmax);
    constraint("memcpy_s: smax exceeds dmax", 403);
    return 403;
  }
  if (ranges_overlap(dest, smax, src, smax)) {
    std::memset(dest, 0, dmax);
    constraint("memcpy_s: overlap undefined", 404);
    return 404;
  }
  std::memcpy(dest, src, smax);
  return 0;
}

int tvx_memmove_s(void* dest, std::size_t dmax, const void* src, std::size_t smax) {
  if (dest == nullptr) {
    constraint("memmove_s: dest is null", 400);
    return 400;
  }
  if (dmax == 0) {
    constraint("memmove_s: dmax is 0", 401);
    return 401;
  }
  if (src == nullptr) {
    std::memset(dest, 0, dmax);
    constraint("memmove_s: src is null", 400);
    return 400;
  }
  if (smax == 0) {
    std::memset(dest, 0, dmax);
    constraint("memmove_s: smax is 0", 401);
    return 401;
  }
  if (smax > dmax) {
    std::memset(dest, 0, dmax);
    constraint("memmove_s: smax exceeds max", 403);
    return 403;
  }
  std::memmove(dest, src, smax);
  return 0;
}

static void register_in(StopEntry* list, int* count, int max, tvx_stop_fn fn, void* context) {
  tvx_lock(&g_stop_lock);
  if (*count >= max) {
    tvx_unlock(&g_stop_lock);
    tvx_exit(3);
  }
  list[*count] = StopEntry{fn, context};
  ++*count;
  tvx_unlock(&g_stop_lock);
}

void tvx_register_at_stop(tvx_stop_fn fn, void* context) {
  register_in(g_stop_early, &g_stop_early_count, kStopEarly, fn, context);
}

void tvx_register_at_stop_late(tvx_stop_fn fn, void* context) {
  register_in(g_stop_late, &g_stop_late_count, kStopLate, fn, context);
}

// Defined by the memory manager: gives back every cached buffer of the process.
void tvx_free_buffers(void);

void tvx_library_stop(void) {
  if (g_stopping.exchange(1) != 0) return;
  tvx_free_buffers();
  tvx_lock(&g_stop_lock);
  for (int i = g_stop_early_count - 1; i >= 0; --i) {
    if (g_stop_early[i].fn != nullptr) g_stop_early[i].fn(g_stop_early[i].context);
  }
  for (int i = g_stop_late_count - 1; i >= 0; --i) {
    if (g_stop_late[i].fn != nullptr) g_stop_late[i].fn(g_stop_late[i].context);
  }
  g_stop_early_count = 0;
  g_stop_late_count = 0;
  tvx_unlock(&g_stop_lock);
}

int tvx_library_stopping(void) {
  return g_stopping.load(std::memory_order_acquire);
}

void tvx_register_thread_exit(tvx_thread_exit_fn fn) {
  const int i = g_thread_exit_count.fetch_add(1, std::memory_order_acq_rel);
  if (i >= kThreadExitMax) tvx_exit(3);
  g_thread_exit[i].store(fn, std::memory_order_release);
  t_exit_runner.armed = true;
}

// Arms the calling thread's exit runner; cheap after the first call on a thread.
void tvx_thread_touch(void) {
  t_exit_runner.armed = true;
}

}  // extern "C"

// Library stop at unload or normal process exit.
__attribute__((destructor)) static void tvx_library_destructor() {
  tvx_library_stop();
}
