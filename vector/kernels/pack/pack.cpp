// Pack and unpack kernels, compiled once per instruction-set variant: the cells
// kaz_<packi|packv|packm|unpacki|unpackv|unpackm>_<t>_ha_<variant> of the move rows, one kernel
// per variant for all three accuracies.
//
// They only move bits: no arithmetic touches a value, so NaN payloads and signalling NaNs arrive
// unchanged, nothing raises a floating-point flag and the mode word is never read. The complex
// types move as units of 8 bytes (one double lane) and 16 bytes (two double lanes).
//
// Paths per variant: a contiguous run (increment 1, mask blocks that are all set) is a register
// copy; index vectors gather on variants 3 and 5; mixed mask blocks compress
// (pack) or expand (unpack) a register and store it under a lane mask on variant 5. Everything
// else is a plain loop unrolled by 8. A dense destination of 4 MiB or more is written with
// non-temporal stores, so that its lines are not read first and the caches keep the source.
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "tvx_vector.h"
#include "vector/kernels/common/kernel_loop.h"

namespace tvx::TVX_VNS::pack {

// Register lane type of an element type, and lanes per element.
template <class T>
struct Unit {
  using F = T;
  static constexpr int kLanes = 1;
};
template <>
struct Unit<TvxComplex8> {
  using F = double;
  static constexpr int kLanes = 1;
};
template <>
struct Unit<TvxComplex16> {
  using F = double;
  static constexpr int kLanes = 2;
};
template <class T>
using lane_t = typename Unit<T>::F;
// Elements per register.
template <class T>
inline constexpr int kPer = simd::lanes<lane_t<T>> / Unit<T>::kLanes;

template <class T>
inline const lane_t<T>* lanes_of(const T* p) {
  return reinterpret_cast<const lane_t<T>*>(p);
}
template <class T>
inline lane_t<T>* lanes_of(T* p) {
  return reinterpret_cast<lane_t<T>*>(p);
}

// One element stored past the caches (the address is aligned to the element).
template <class T>
inline void stream_one(T* p, const T& v) {
  if constexpr (sizeof(T) == 4) {
    std::int32_t w;
    std::memcpy(&w, &v, 4);
    _mm_stream_si32(reinterpret_cast<int*>(p), w);
  } else if constexpr (sizeof(T) == 8) {
    long long w;
    std::memcpy(&w, &v, 8);
    _mm_stream_si64(reinterpret_cast<long long*>(p), w);
  } else {
    _mm_stream_pd(reinterpret_cast<double*>(p), _mm_loadu_pd(reinterpret_cast<const double*>(&v)));
  }
}

// Elements to write ahead so that y + i is aligned to a register, or -1 when y is not even
// aligned to its element.
template <class T>
inline int peel_elements(const T* y) {
  constexpr std::uintptr_t kBytes = sizeof(simd::vec<lane_t<T>>);
  const std::uintptr_t mis = reinterpret_cast<std::uintptr_t>(y) % kBytes;
  if (mis % sizeof(T) != 0) return -1;
  return mis == 0 ? 0 : static_cast<int>((kBytes - mis) / sizeof(T));
}

// Writes y[0..n): element i is get(i); a register of kPer elements from i is block(i), or, when
// block is nullptr, the elements go one by one in a loop unrolled by 8.
template <class T, class Get, class Block>
inline void write_dense(int n, T* y, Get get, Block block) {
  constexpr int P = kPer<T>;
  constexpr bool kVec = !std::is_same_v<Block, std::nullptr_t>;
  int i = 0;
  if (static_cast<long>(n) * static_cast<long>(sizeof(T)) >= kStreamBytes) {
    const int peel = peel_elements(y);
    if (peel >= 0) {
      for (; i < peel; ++i) y[i] = get(i);
      if constexpr (kVec) {
        for (; i + P <= n; i += P) simd::stream(lanes_of(y + i), block(i));
      } else {
        for (; i + 8 <= n; i += 8) {
#pragma GCC unroll 8
          for (int u = 0; u < 8; ++u) stream_one(y + i + u, get(i + u));
        }
      }
      simd::stream_fence();
    }
  }
  if constexpr (kVec) {
    for (; i + P <= n; i += P) simd::storeu(lanes_of(y + i), block(i));
  } else {
    for (; i + 8 <= n; i += 8) {
#pragma GCC unroll 8
      for (int u = 0; u < 8; ++u) y[i + u] = get(i + u);
    }
  }
  for (; i < n; ++i) y[i] = get(i);
}

// A register holding `lanes` copies of the element at p.
template <class T>
inline simd::vec<lane_t<T>> repeat(const T* p) {
  using F = lane_t<T>;
  alignas(64) F buf[simd::lanes<F>];
  for (int q = 0; q < simd::lanes<F>; ++q) buf[q] = lanes_of(p)[q % Unit<T>::kLanes];
  return simd::vec<F>::load_aligned(buf);
}

// y[i] = a[i * inc].
template <class T>
void pack_i(int n, const T* a, int inc, T* y) {
  if (n <= 0) return;
  const auto fa = lanes_of(a);
  constexpr int k = Unit<T>::kLanes;
  if (inc == 1) {
    write_dense(
        n, y, [&](int i) { return a[i]; }, [&](int i) { return simd::loadu(fa + i * k); });
    return;
  }
  if (inc == 0) {
    const auto v = repeat(a);
    write_dense(
        n, y, [&](int) { return a[0]; }, [&](int) { return v; });
    return;
  }
  // Other increments element by element: a gather loses here (about 4 GB/s against 13 for the
  // plain loop at increment 2 on the AVX-512 machine of docs/performance.md), since the loop's
  // loads stream the source lines just as well and the stores stay non-temporal.
  const long step = inc;
  write_dense(
      n, y, [&](int i) { return a[i * step]; }, nullptr);
}

// y[i] = a[ia[i]].
template <class T>
void pack_v(int n, const T* a, const int* ia, T* y) {
  if (n <= 0) return;
#if TVX_VARIANT_ID == 3 || TVX_VARIANT_ID == 5
  if constexpr (Unit<T>::kLanes == 1) {
    const auto fa = lanes_of(a);
    write_dense(
        n, y, [&](int i) { return a[ia[i]]; }, [&](int i) { return simd::gather32(fa, ia + i); });
    return;
  }
#endif
  write_dense(
      n, y, [&](int i) { return a[ia[i]]; }, nullptr);
}

// Bit j set when the mask word of element i + j is not zero, for the kPer elements from i.
template <class T>
inline std::uint32_t block_bits(const int* m) {
#if TVX_VARIANT_ID == 3 || TVX_VARIANT_ID == 5
  if constexpr (Unit<T>::kLanes == 1) return simd::nonzero_bits<lane_t<T>>(m);
#endif
  std::uint32_t b = 0;
  for (int j = 0; j < kPer<T>; ++j) b |= static_cast<std::uint32_t>(m[j] != 0) << j;
  return b;
}

// Each non-zero m[i] appends a[i] to y. Blocks of a register: all taken, a register copy; none
// taken, skipped; some taken, the AVX-512 compress, or else the elements one by one.
template <class T>
void pack_m(int n, const T* a, const int* m, T* y) {
  // Without branches, every element is written to the next free place, which only the taken ones
  // advance; while a taken element still follows (the last one, at `last`), that place lies
  // inside y.
  int last = n - 1;
  while (last >= 0 && m[last] == 0) --last;
  if (last < 0) return;
  constexpr int P = kPer<T>;
  constexpr std::uint32_t kAll = (1u << P) - 1u;
  const auto fa = lanes_of(a);
  const auto fy = lanes_of(y);
  constexpr int k = Unit<T>::kLanes;
  int i = 0;
  long at = 0;
  for (; i + P <= last; i += P) {
    const std::uint32_t b = block_bits<T>(m + i);
    if (b == 0) continue;
    if (b == kAll) {
      simd::storeu(fy + at * k, simd::loadu(fa + i * k));
      at += P;
      continue;
    }
#if TVX_VARIANT_ID == 5
    if constexpr (k == 1) {
      const int c = __builtin_popcount(b);
      simd::store_partial(fy + at, simd::compress(simd::loadu(fa + i), b), c);
      at += c;
      continue;
    }
#endif
    for (int j = 0; j < P; ++j) {
      y[at] = a[i + j];
      at += (b >> j) & 1;
    }
  }
#pragma GCC unroll 8
  for (; i < last; ++i) {
    y[at] = a[i];
    at += m[i] != 0;
  }
  y[at] = a[last];
}

// y[i * inc] = a[i]; for equal places the later element wins.
template <class T>
void unpack_i(int n, const T* a, T* y, int inc) {
  if (n <= 0) return;
  if (inc == 1) {
    const auto fa = lanes_of(a);
    constexpr int k = Unit<T>::kLanes;
    write_dense(
        n, y, [&](int i) { return a[i]; }, [&](int i) { return simd::loadu(fa + i * k); });
    return;
  }
  if (inc == 0) {
    y[0] = a[n - 1];
    return;
  }
  const long step = inc;
#pragma GCC unroll 8
  for (int i = 0; i < n; ++i) y[i * step] = a[i];
}

// y[iy[i]] = a[i], upward, so that the later of two equal indices wins.
template <class T>
void unpack_v(int n, const T* a, T* y, const int* iy) {
#pragma GCC unroll 8
  for (int i = 0; i < n; ++i) y[iy[i]] = a[i];
}

// Each non-zero m[i] sets y[i] from the next element of a; y[i] under a zero stays untouched.
// Blocks as in pack_m, with the AVX-512 expand and a lane-masked store for the mixed ones.
template <class T>
void unpack_m(int n, const T* a, T* y, const int* m) {
  constexpr int P = kPer<T>;
  constexpr std::uint32_t kAll = (1u << P) - 1u;
  const auto fa = lanes_of(a);
  const auto fy = lanes_of(y);
  constexpr int k = Unit<T>::kLanes;
  int i = 0;
  long at = 0;
  for (; i + P <= n; i += P) {
    const std::uint32_t b = block_bits<T>(m + i);
    if (b == 0) continue;
    if (b == kAll) {
      simd::storeu(fy + i * k, simd::loadu(fa + at * k));
      at += P;
      continue;
    }
#if TVX_VARIANT_ID == 5
    if constexpr (k == 1) {
      using F = lane_t<T>;
      const int c = __builtin_popcount(b);
      simd::store_where(fy + i, simd::expand(simd::load_partial(fa + at, c, F(0)), b), b);
      at += c;
      continue;
    }
#endif
    for (int j = 0; j < P; ++j) {
      if ((b >> j) & 1) y[i + j] = a[at++];
    }
  }
  for (; i < n; ++i) {
    if (m[i] != 0) y[i] = a[at++];
  }
}

}  // namespace tvx::TVX_VNS::pack

using namespace tvx::TVX_VNS::pack;

#define TVX_MOVES(t, T)                                                                     \
  extern "C" void TVX_ENTRY(kaz_packi_##t##_ha)(int n, const T* a, int inc, T* y) {         \
    pack_i(n, a, inc, y);                                                                   \
  }                                                                                         \
  extern "C" void TVX_ENTRY(kaz_packv_##t##_ha)(int n, const T* a, const int* ia, T* y) {   \
    pack_v(n, a, ia, y);                                                                    \
  }                                                                                         \
  extern "C" void TVX_ENTRY(kaz_packm_##t##_ha)(int n, const T* a, const int* m, T* y) {    \
    pack_m(n, a, m, y);                                                                     \
  }                                                                                         \
  extern "C" void TVX_ENTRY(kaz_unpacki_##t##_ha)(int n, const T* a, T* y, int inc) {       \
    unpack_i(n, a, y, inc);                                                                 \
  }                                                                                         \
  extern "C" void TVX_ENTRY(kaz_unpackv_##t##_ha)(int n, const T* a, T* y, const int* iy) { \
    unpack_v(n, a, y, iy);                                                                  \
  }                                                                                         \
  extern "C" void TVX_ENTRY(kaz_unpackm_##t##_ha)(int n, const T* a, T* y, const int* m) {  \
    unpack_m(n, a, y, m);                                                                   \
  }

TVX_MOVES(s, float)
TVX_MOVES(d, double)
TVX_MOVES(c, TvxComplex8)
TVX_MOVES(z, TvxComplex16)
