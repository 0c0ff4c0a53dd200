// Compile-time identity of the instruction-set variant being built.
//
// A variant file is compiled once per variant with TVX_VARIANT_ID and TVX_VARIANT_NAME set by
// the build (cmake/TvxVariants.cmake). Everything it defines lives in namespace
// tvx::TVX_VNS (tvx::v_sse2, tvx::v_avx2, ...) so that no C++ symbol of one variant can collide
// with its twin in another; entry points are extern "C" and carry the variant as a suffix.
#pragma once

#if !defined(TVX_VARIANT_ID) || !defined(TVX_VARIANT_NAME)
#error "variant.h is only for files compiled per instruction-set variant"
#endif

#include <xsimd/xsimd.hpp>

#define TVX_PASTE2_(a, b) a##b
#define TVX_PASTE2(a, b) TVX_PASTE2_(a, b)
#define TVX_PASTE3(a, b, c) TVX_PASTE2(TVX_PASTE2(a, b), c)
#define TVX_VNS TVX_PASTE2(v_, TVX_VARIANT_NAME)
// TVX_ENTRY(kaz_add_d_ha) -> kaz_add_d_ha_avx2 in the AVX2 build.
#define TVX_ENTRY(name) TVX_PASTE3(name, _, TVX_VARIANT_NAME)

namespace tvx::TVX_VNS {

inline constexpr int kVariantId = TVX_VARIANT_ID;

#if TVX_VARIANT_ID == 0 || TVX_VARIANT_ID == 1
using arch = xsimd::sse2;
#elif TVX_VARIANT_ID == 2
using arch = xsimd::sse4_2;
#elif TVX_VARIANT_ID == 3
using arch = xsimd::fma3<xsimd::avx2>;
#elif TVX_VARIANT_ID == 5
using arch = xsimd::avx512dq;
#else
#error "unknown variant id"
#endif

static_assert(arch::supported(), "compiler flags do not enable this variant's instruction set");

}  // namespace tvx::TVX_VNS
