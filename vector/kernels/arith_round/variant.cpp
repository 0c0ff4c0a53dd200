// Arithmetic kernels, compiled once per instruction-set variant.
#include "vector/kernels/common/variant.h"

namespace tvx::TVX_VNS {
namespace {

template <class T>
void add(int n, const T* a, const T* b, T* r) {
  for (int i = 0; i < n; ++i) r[i] = a[i] + b[i];
}

template <class T>
void sub(int n, const T* a, const T* b, T* r) {
  for (int i = 0; i < n; ++i) r[i] = a[i] - b[i];
}

}  // namespace
}  // namespace tvx::TVX_VNS

using namespace tvx::TVX_VNS;

extern "C" {
void TVX_ENTRY(kaz_add_d_ha)(int n, const double* a, const double* b, double* r) { add(n, a, b, r); }
void TVX_ENTRY(kaz_add_s_ha)(int n, const float* a, const float* b, float* r) { add(n, a, b, r); }
void TVX_ENTRY(kaz_sub_d_ha)(int n, const double* a, const double* b, double* r) { sub(n, a, b, r); }
void TVX_ENTRY(kaz_sub_s_ha)(int n, const float* a, const float* b, float* r) { sub(n, a, b, r); }
}
