// Array loops around the peers' vector functions, at AVX-512 and AVX2 width, with the last
// partial vector through the scalar function S. Each width's loops are compiled for its own
// instructions only (see peer_isa.h).
#pragma once

#include <immintrin.h>

namespace peers {

#pragma GCC push_options
#pragma GCC target("avx2,fma,avx512f,avx512dq")
template <auto F, auto S>
void loop_d8(int n, const double* a, double* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm512_storeu_pd(r + i, F(_mm512_loadu_pd(a + i)));
  for (; i < n; ++i) r[i] = S(a[i]);
}
template <auto F, auto S>
void loop_s16(int n, const float* a, float* r) {
  int i = 0;
  for (; i + 16 <= n; i += 16) _mm512_storeu_ps(r + i, F(_mm512_loadu_ps(a + i)));
  for (; i < n; ++i) r[i] = S(a[i]);
}
#pragma GCC pop_options

#pragma GCC push_options
#pragma GCC target("avx2,fma")
template <auto F, auto S>
void loop_d4(int n, const double* a, double* r) {
  int i = 0;
  for (; i + 4 <= n; i += 4) _mm256_storeu_pd(r + i, F(_mm256_loadu_pd(a + i)));
  for (; i < n; ++i) r[i] = S(a[i]);
}
template <auto F, auto S>
void loop_s8(int n, const float* a, float* r) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(r + i, F(_mm256_loadu_ps(a + i)));
  for (; i < n; ++i) r[i] = S(a[i]);
}
#pragma GCC pop_options

}  // namespace peers
