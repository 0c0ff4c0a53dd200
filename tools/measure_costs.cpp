// Measures the cost weights of the dispatch rows: time-stamp-counter cycles per element of every
// kernel cell, on data that sits in the first-level cache, for each line of functions.def.
//
// Usage: tvx-measure-costs [filter]
// Prints one line per function and type, "Name t (c0, ..., c14)", the 15 weights in the order of
// a functions.def line (rows LA, HA, EP; variants 0, 1, 2, 3, 5), ready to paste as its costs.
// Variant 1 carries 3.0 by convention; cells of a variant this processor lacks are not run and
// print the lowest weight, with a note on standard error naming the missing feature.
// The arguments lie in [0.55, 0.95], inside the domain of every kernel, and the thread's error
// mode is set to ignore, so no report slows a cell down.
#include <x86intrin.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <type_traits>
#include <vector>

#include "runtime/cpu_type.h"
#include "tvx_vector.h"
#include "vector/frame/rows.h"

namespace {

constexpr int kN = 1024;
constexpr int kReps = 200;
constexpr int kVariantSlots[5] = {0, 1, 2, 3, 5};

// Element storage big enough for any element type, with arguments of every class.
struct Buffers {
  alignas(64) double a[2 * kN];
  alignas(64) double b[2 * kN];
  alignas(64) double r[2 * kN];
  alignas(64) double z[2 * kN];
  Buffers() {
    auto fill = [](double* d, float* f, unsigned seed) {
      for (int i = 0; i < 2 * kN; ++i) {
        seed = seed * 1103515245u + 12345u;
        const double v = 0.55 + 0.4 * ((seed >> 8) & 0xFFFF) / 65535.0;
        d[i] = v;
        f[i] = static_cast<float>(v);
      }
    };
    fill(a, fa, 1);
    fill(b, fb, 2);
  }
  float fa[4 * kN];
  float fb[4 * kN];
};
Buffers g_buf;

// Inputs and outputs by element type: single and single-complex share the float arrays, double
// and double-complex the double ones.
template <class T>
constexpr bool kFloatStorage = std::is_same_v<T, float> || std::is_same_v<T, TvxComplex8>;
template <class T>
T* in_a() {
  if constexpr (kFloatStorage<T>)
    return reinterpret_cast<T*>(g_buf.fa);
  else
    return reinterpret_cast<T*>(g_buf.a);
}
template <class T>
T* in_b() {
  if constexpr (kFloatStorage<T>)
    return reinterpret_cast<T*>(g_buf.fb);
  else
    return reinterpret_cast<T*>(g_buf.b);
}
template <class T>
T* out() {
  return reinterpret_cast<T*>(g_buf.r);
}
template <class T>
T* out2() {
  return reinterpret_cast<T*>(g_buf.z);
}

// Fewest cycles per element over the repetitions.
template <class F>
float cycles_per_element(F call) {
  call();  // warm up
  unsigned long long best = ~0ull;
  for (int rep = 0; rep < kReps; ++rep) {
    unsigned aux;
    const unsigned long long t0 = __rdtscp(&aux);
    call();
    const unsigned long long t1 = __rdtscp(&aux);
    best = std::min(best, t1 - t0);
  }
  return static_cast<float>(best) / kN;
}

template <class T>
float time_v_v(void (*k)(int, const T*, T*)) {
  return cycles_per_element([&] { k(kN, in_a<T>(), out<T>()); });
}
template <class T>
float time_vv_v(void (*k)(int, const T*, const T*, T*)) {
  return cycles_per_element([&] { k(kN, in_a<T>(), in_b<T>(), out<T>()); });
}
template <class T>
float time_v_vv(void (*k)(int, const T*, T*, T*)) {
  return cycles_per_element([&] { k(kN, in_a<T>(), out<T>(), out2<T>()); });
}
template <class T, class S>
float time_vs_v(void (*k)(int, const T*, S, T*)) {
  if constexpr (std::is_pointer_v<S>) {
    static T s;
    std::memcpy(static_cast<void*>(&s), in_b<T>(), sizeof s);
    return cycles_per_element([&] { k(kN, in_a<T>(), &s, out<T>()); });
  } else {
    const S s = *in_b<T>();
    return cycles_per_element([&] { k(kN, in_a<T>(), s, out<T>()); });
  }
}
template <class T>
float time_lfrac(void (*k)(int, const T*, const T*, T, T, T, T, T*)) {
  return cycles_per_element(
      [&] { k(kN, in_a<T>(), in_b<T>(), T(2), T(1), T(0.5), T(3), out<T>()); });
}
template <class T, class R>
float time_c_r(void (*k)(int, const T*, R*)) {
  return cycles_per_element([&] { k(kN, in_a<T>(), out<R>()); });
}
template <class T, class R>
float time_r_c(void (*k)(int, const R*, T*)) {
  return cycles_per_element([&] { k(kN, in_a<R>(), out<T>()); });
}

// Moves: increment 1, a scattered permutation as the index vector, every other element masked.
const int* move_vector(bool mask) {
  static int ix[kN], m[kN];
  for (int i = 0; i < kN; ++i) {
    ix[i] = (i * 397) % kN;
    m[i] = i & 1;
  }
  return mask ? m : ix;
}
template <class T>
float time_pack(void (*k)(int, const T*, int, T*)) {
  return cycles_per_element([&] { k(kN, in_a<T>(), 1, out<T>()); });
}
template <class T>
float time_pack(void (*k)(int, const T*, const int*, T*), bool mask) {
  return cycles_per_element([&] { k(kN, in_a<T>(), move_vector(mask), out<T>()); });
}
template <class T>
float time_unpack(void (*k)(int, const T*, T*, int)) {
  return cycles_per_element([&] { k(kN, in_a<T>(), out<T>(), 1); });
}
template <class T>
float time_unpack(void (*k)(int, const T*, T*, const int*), bool mask) {
  return cycles_per_element([&] { k(kN, in_a<T>(), out<T>(), move_vector(mask)); });
}

#define TVX_TIME_v_v(t, k) time_v_v<TVX_T_##t>(k)
#define TVX_TIME_vv_v(t, k) time_vv_v<TVX_T_##t>(k)
#define TVX_TIME_v_vv(t, k) time_v_vv<TVX_T_##t>(k)
#define TVX_TIME_vs_v(t, k) time_vs_v(k)
#define TVX_TIME_lfrac(t, k) time_lfrac<TVX_T_##t>(k)
#define TVX_TIME_c_r(t, k) time_c_r(k)
#define TVX_TIME_r_c(t, k) time_r_c(k)
#define TVX_TIME_pack_i(t, k) time_pack(k)
#define TVX_TIME_pack_v(t, k) time_pack(k, false)
#define TVX_TIME_pack_m(t, k) time_pack(k, true)
#define TVX_TIME_unpack_i(t, k) time_unpack(k)
#define TVX_TIME_unpack_v(t, k) time_unpack(k, false)
#define TVX_TIME_unpack_m(t, k) time_unpack(k, true)

// A weight as a float literal with three significant digits: 0.248f, 3.0f, 21.7f. Weights are
// kept within the range the threader's cost model is calibrated for, [0.113, 1792.66].
void print_weight(float w, const char* tail) {
  if (w < 0.113f) w = 0.113f;
  if (w > 1792.66f) w = 1792.66f;
  char b[32];
  std::snprintf(b, sizeof b, "%.3g", w);
  std::printf("%s%sf%s", b, std::strpbrk(b, ".e") ? "" : ".0", tail);
}

}  // namespace

int main(int argc, char** argv) {
  const char* filter = argc > 1 ? argv[1] : nullptr;
  kazSetMode(KAZ_ERRMODE_IGNORE);
  bool runs[6] = {};
  for (int v : kVariantSlots) {
    const int missing = tvx_kaz_variant_missing_feature(v);
    runs[v] = missing < 0;
    if (!runs[v]) {
      std::fprintf(stderr, "note: variant %d not measured: CPU lacks %s\n", v,
                   tvx_cpu_feature_name(missing));
    }
  }
#define TVX_VFN(Name, lname, t, cls, flags, cells, costs)                                   \
  if (filter == nullptr || std::strcmp(filter, #Name) == 0) {                               \
    float c[15];                                                                            \
    for (int acc = 0; acc < 3; ++acc) {                                                     \
      for (int j = 0; j < 5; ++j) {                                                         \
        const int v = kVariantSlots[j];                                                     \
        const int slot = v + 6 * acc;                                                       \
        c[acc * 5 + j] = v == 1    ? 3.0f                                                   \
                         : runs[v] ? TVX_TIME_##cls(t, tvx_row_##lname##_##t.kernels[slot]) \
                                   : 0.0f;                                                  \
      }                                                                                     \
    }                                                                                       \
    std::printf("%-12s %s (", #Name, #t);                                                   \
    for (int i = 0; i < 15; ++i) print_weight(c[i], i < 14 ? ", " : ")\n");                 \
  }
#include "vector/frame/functions.def"
#undef TVX_VFN
  return 0;
}
