// Processor detection and the choice of code variant.
//
// Three numbers are resolved once per process, on first demand: the base type (0, 3, 5, 7), the
// CPU type (0..9) and the vector variant index (0..5). CPU types map to vector variants by
// 0,1,0,0,0,2,2,3,4,5 and to the five random/statistics copies by
// base,compat,base,base,base,sse42,sse42,avx2,avx2,avx512.
#pragma once

#include <cstdint>

extern "C" {

// Feature word: two 64-bit words, bit numbers as in the feature table (cpu_type.cpp).
// Word 0 equal to zero means "not yet initialised"; bit 0 is always set afterwards.
extern volatile std::uint64_t tvx_cpu_features[2];

enum : int {
  TVX_FEAT_GENERIC_IA32 = 0,
  TVX_FEAT_SSE2 = 6,
  TVX_FEAT_SSE3 = 7,
  TVX_FEAT_SSSE3 = 8,
  TVX_FEAT_SSE4_1 = 9,
  TVX_FEAT_SSE4_2 = 10,
  TVX_FEAT_PCLMULQDQ = 13,
  TVX_FEAT_AES = 14,
  TVX_FEAT_AVX = 16,
  TVX_FEAT_RDRND = 17,
  TVX_FEAT_FMA = 18,
  TVX_FEAT_BMI = 19,
  TVX_FEAT_LZCNT = 20,
  TVX_FEAT_AVX2 = 23,
  TVX_FEAT_AVX512DQ = 24,
  TVX_FEAT_AVX512F = 27,
  TVX_FEAT_AVX512BW = 37,
  TVX_FEAT_AVX512VL = 38,
  TVX_FEAT_VAES = 46,
  TVX_FEAT_VPCLMULQDQ = 47,
  TVX_FEAT_AVX512_VNNI = 48,
};

// Initialises the feature word if needed and tests one bit.
int tvx_cpu_has_feature(int bit);
// Upper-case name of a feature bit, or null.
const char* tvx_cpu_feature_name(int bit);

int tvx_kaz_variant_index(void);      // vector variant 0..5, includes the debug override
int tvx_rud_cpu_type(void);           // CPU type 0..9 for random and statistics code
int tvx_serv_get_cpu_type(void);      // base type
int tvx_serv_get_kaz_cpu_type(void);  // CPU type
// Raw class of this processor (0, 3, 5, 7, 9, 10, 12, 14, 15, 16), or -1 with *fatal_out set
// when it lacks SSE3 (after printing why).
int tvx_serv_cpu_classify(int* fatal_out);
// Parses TVX_ENABLE_INSTRUCTIONS once and applies it; writes the limit code (-1: none).
void tvx_serv_enable_instructions(int* limit_out);
// 1 when the processor's vendor is one the library is tuned for.
int tvx_serv_has_home_vendor(void);

// Reproducibility word: low 16 bits branch code, bit 16 strict. tvx_cbwr_get(1) gives the
// branch code, tvx_cbwr_get(-1) the whole word, anything else -2. The first call parses TVX_CBWR
// under the detection lock.
enum : int {
  TVX_CBWR_BRANCH_MASK = 0xFFFF,
  TVX_CBWR_STRICT = 0x10000,
};
int tvx_cbwr_get(int what);
// Name of a branch code as printed by verbose lines ("OFF", "AUTO", ..., "?%x"), written to
// `buffer` (truncated to `size`) and returned.
const char* tvx_cbwr_branch_name(int code, char* buffer, int size);

// Random and statistics copy (0 base, 1 compatibility, 2 SSE4.2, 3 AVX2, 4 AVX-512) of a CPU type.
int tvx_rud_variant_of_cpu_type(int cpu_type);
// Vector variant index (0..5) of a CPU type.
int tvx_kaz_variant_of_cpu_type(int cpu_type);

// Whether code of a variant can run here, by the feature word (ORVANE_ISA_DISABLE applied): the
// bit of the first feature it needs and the word lacks, or -1 when it can run. Vector variants
// are 0..5 (4 holds no code), random and statistics copies 0..4; other numbers need nothing.
int tvx_kaz_variant_missing_feature(int variant);
int tvx_rud_copy_missing_feature(int copy);

}  // extern "C"
