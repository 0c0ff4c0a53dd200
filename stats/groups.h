// The estimate groups of one variant copy and the helpers they share.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "runtime/memory.h"
#include "runtime/settings.h"
#include "simd/variant.h"
#include "stats/task.h"

namespace tvx::TVX_VNS::ss {

using tvx::ss::read_int;
using tvx::ss::Task;

using GroupFn = int (*)(Task*, std::int64_t, std::uint32_t, const tvx_thread_services*);

template <class T>
int basic_group(Task* task, std::int64_t estimates, std::uint32_t method,
                const tvx_thread_services* services);
template <class T>
int extremes_group(Task* task, std::int64_t estimates, std::uint32_t method,
                   const tvx_thread_services* services);
template <class T>
int quantiles_group(Task* task, std::int64_t estimates, std::uint32_t method,
                    const tvx_thread_services* services);
template <class T>
int sorted_group(Task* task, std::int64_t estimates, std::uint32_t method,
                 const tvx_thread_services* services);
template <class T>
int stream_group(Task* task, std::int64_t estimates, std::uint32_t method,
                 const tvx_thread_services* services);
template <class T>
int deviation_group(Task* task, std::int64_t estimates, std::uint32_t method,
                    const tvx_thread_services* services);

// Mean of one contiguous run of n values by the fast kernel (weights optional); the inner step of
// the mean absolute deviation.
template <class T>
T run_mean(const T* x, const T* w, std::int64_t n);

// Median of n values by selection (reorders a); NaN when one of them is NaN.
template <class T>
T median_by_selection(T* a, std::int64_t n);

// Layout of the observation matrix from the storage value: variables in columns only when p > 1
// and the rows bit is clear.
inline bool columns_layout(std::int64_t storage, std::int64_t p) {
  return p > 1 && (storage & 0x10000) == 0;
}

inline bool selected(const Task* task, std::int64_t v) {
  return task->variable_selection == nullptr || read_int(task, task->variable_selection, v) != 0;
}

// Checked a * b * c bytes; false on overflow.
inline bool bytes_of(std::size_t a, std::size_t b, std::size_t c, std::size_t* out) {
  return !__builtin_mul_overflow(a, b, out) && !__builtin_mul_overflow(*out, c, out);
}

// Scratch of `bytes` from the library allocator, aligned to 128; freed on scope exit.
struct Scratch {
  void* p = nullptr;
  Scratch() = default;
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { tvx_free(p); }
  bool take(std::size_t bytes, bool zero) {
    p = zero ? tvx_calloc(1, bytes, 128) : tvx_malloc(bytes, 128);
    return p != nullptr;
  }
  template <class T>
  T* as() const {
    return static_cast<T*>(p);
  }
};

}  // namespace tvx::TVX_VNS::ss
