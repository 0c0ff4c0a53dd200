// Processor detection and the choice of code variant.
//
// The feature word is filled from CPUID and XGETBV on first demand. Classification turns it into
// a raw class; the reproducibility branch, the instruction limit and the debug override decide
// how that class becomes the cached base type, CPU type and variant index. Everything is
// computed at most once per process (tests can reset it through the hooks in cpu_probe.h).
#include "runtime/cpu_type.h"

#include <cpuid.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "runtime/cpu_probe.h"
#include "runtime/report.h"

#ifndef TVX_HOME_VENDORS
#define TVX_HOME_VENDORS ""
#endif

namespace {

// ---- CPUID source ----------------------------------------------------------------------------

void hardware_cpuid(std::uint32_t leaf, std::uint32_t subleaf, tvx_cpuid_regs* out) {
  unsigned a = 0, b = 0, c = 0, d = 0;
  __cpuid_count(leaf, subleaf, a, b, c, d);
  *out = tvx_cpuid_regs{a, b, c, d};
}

std::uint64_t hardware_xgetbv() {
  std::uint32_t lo = 0, hi = 0;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
  return (static_cast<std::uint64_t>(hi) << 32) | lo;
}

std::atomic<tvx_cpuid_fn> g_cpuid{hardware_cpuid};
std::atomic<tvx_xgetbv_fn> g_xgetbv{hardware_xgetbv};
std::atomic<const char*> g_home_vendors{TVX_HOME_VENDORS};

// ---- Feature table -----------------------------------------------------------------------------

// Where a feature's CPUID bit lives. Leaves that the processor does not report read as zero.
enum Reg : int {
  kNone,   // no CPUID bit on this architecture
  kL1Ecx,  // leaf 1
  kL1Edx,
  kL7Ebx,  // leaf 7 sub-leaf 0
  kL7Ecx,
  kL7Edx,
  kL71Eax,  // leaf 7 sub-leaf 1
  kL71Ebx,
  kL71Edx,
  kL14Ebx,  // leaf 0x14 sub-leaf 0 (processor trace)
  kL19Ebx,  // leaf 0x19 (key locker)
  kL24Ebx,  // leaf 0x24 (converged vector ISA)
  kE1Ecx,   // leaf 0x80000001
  kE8Ebx,   // leaf 0x80000008
  kRegCount
};

// Register state the operating system must save for the feature to be usable (XCR0 bits).
enum OsState : int {
  kAnyState,
  kYmm,   // XCR0 bits 1, 2
  kZmm,   // XCR0 bits 1, 2, 5, 6, 7
  kTile,  // XCR0 bits 17, 18
  kApx,   // XCR0 bit 19
};

// Features whose test is more than one bit.
enum Special : int {
  kPlain,
  kBitManip,   // BMI1 and BMI2 (leaf 7 EBX 3, 8) and LZCNT (extended ECX 5), all three
  kAvx10,      // leaf 7.1 EDX 19 and a version of at least 1 in leaf 0x24 EBX[7:0]
  kAvx10Wide,  // as kAvx10, plus leaf 0x24 EBX 18 (512-bit vectors)
};

struct FeatureRow {
  tvx_cpu_feature_row id;
  Reg reg;
  int reg_bit;
  OsState os;
  Special special;
};

constexpr FeatureRow kFeatures[] = {
    {{"GENERIC_IA32", "generic_ia32", 0}, kNone, 0, kAnyState, kPlain},
    {{"X87", "x87", 1}, kL1Edx, 0, kAnyState, kPlain},
    {{"CMOV", "cmov", 2}, kL1Edx, 15, kAnyState, kPlain},
    {{"MMX", "mmx", 3}, kL1Edx, 23, kAnyState, kPlain},
    {{"FXSAVE", "fxsave", 4}, kL1Edx, 24, kAnyState, kPlain},
    {{"SSE", "sse", 5}, kL1Edx, 25, kAnyState, kPlain},
    {{"SSE2", "sse2", 6}, kL1Edx, 26, kAnyState, kPlain},
    {{"SSE3", "sse3", 7}, kL1Ecx, 0, kAnyState, kPlain},
    {{"SSSE3", "ssse3", 8}, kL1Ecx, 9, kAnyState, kPlain},
    {{"SSE4_1", "sse4_1", 9}, kL1Ecx, 19, kAnyState, kPlain},
    {{"SSE4_2", "sse4_2", 10}, kL1Ecx, 20, kAnyState, kPlain},
    {{"MOVBE", "movbe", 11}, kL1Ecx, 22, kAnyState, kPlain},
    {{"POPCNT", "popcnt", 12}, kL1Ecx, 23, kAnyState, kPlain},
    {{"PCLMULQDQ", "pclmulqdq", 13}, kL1Ecx, 1, kAnyState, kPlain},
    {{"AES", "aes", 14}, kL1Ecx, 25, kAnyState, kPlain},
    {{"AVX", "avx", 16}, kL1Ecx, 28, kYmm, kPlain},
    {{"F16C", "f16c", 15}, kL1Ecx, 29, kYmm, kPlain},
    {{"RDRND", "rdrnd", 17}, kL1Ecx, 30, kAnyState, kPlain},
    {{"FMA", "fma", 18}, kL1Ecx, 12, kYmm, kPlain},
    {{"BMI", "bmi", 19}, kNone, 0, kAnyState, kBitManip},
    {{"LZCNT", "lzcnt", 20}, kNone, 0, kAnyState, kBitManip},
    {{"HLE", "hle", 21}, kL7Ebx, 4, kAnyState, kPlain},
    {{"RTM", "rtm", 22}, kL7Ebx, 11, kAnyState, kPlain},
    {{"AVX2", "avx2", 23}, kL7Ebx, 5, kYmm, kPlain},
    {{"AVX512F", "avx512f", 27}, kL7Ebx, 16, kZmm, kPlain},
    {{"AVX512DQ", "avx512dq", 24}, kL7Ebx, 17, kZmm, kPlain},
    {{"PTWRITE", "ptwrite", 25}, kL14Ebx, 4, kAnyState, kPlain},
    {{"KNCNI", "kncni", 26}, kNone, 0, kAnyState, kPlain},
    {{"ADX", "adx", 28}, kL7Ebx, 19, kAnyState, kPlain},
    {{"RDSEED", "rdseed", 29}, kL7Ebx, 18, kAnyState, kPlain},
    {{"AVX512IFMA52", "avx512ifma52", 30}, kL7Ebx, 21, kZmm, kPlain},
    {{"AVX512ER", "avx512er", 32}, kL7Ebx, 27, kZmm, kPlain},
    {{"AVX512PF", "avx512pf", 33}, kL7Ebx, 26, kZmm, kPlain},
    {{"AVX512CD", "avx512cd", 34}, kL7Ebx, 28, kZmm, kPlain},
    {{"SHA", "sha", 35}, kL7Ebx, 29, kAnyState, kPlain},
    {{"MPX", "mpx", 36}, kL7Ebx, 14, kAnyState, kPlain},
    {{"AVX512BW", "avx512bw", 37}, kL7Ebx, 30, kZmm, kPlain},
    {{"AVX512VL", "avx512vl", 38}, kL7Ebx, 31, kZmm, kPlain},
    {{"AVX512VBMI", "avx512vbmi", 39}, kL7Ecx, 1, kZmm, kPlain},
    {{"AVX512_4FMAPS", "avx512_4fmaps", 40}, kL7Edx, 3, kZmm, kPlain},
    {{"AVX512_4VNNIW", "avx512_4vnniw", 41}, kL7Edx, 2, kZmm, kPlain},
    {{"AVX512_VPOPCNTDQ", "avx512_vpopcntdq", 42}, kL7Ecx, 14, kZmm, kPlain},
    {{"AVX512_BITALG", "avx512_bitalg", 43}, kL7Ecx, 12, kZmm, kPlain},
    {{"AVX512_VBMI2", "avx512_vbmi2", 44}, kL7Ecx, 6, kZmm, kPlain},
    {{"GFNI", "gfni", 45}, kL7Ecx, 8, kAnyState, kPlain},
    {{"VAES", "vaes", 46}, kL7Ecx, 9, kAnyState, kPlain},
    {{"VPCLMULQDQ", "vpclmulqdq", 47}, kL7Ecx, 10, kAnyState, kPlain},
    {{"AVX512_VNNI", "avx512_vnni", 48}, kL7Ecx, 11, kZmm, kPlain},
    {{"CLWB", "clwb", 49}, kL7Ebx, 24, kAnyState, kPlain},
    {{"RDPID", "rdpid", 50}, kL7Ecx, 22, kAnyState, kPlain},
    {{"IBT", "ibt", 51}, kL7Edx, 20, kAnyState, kPlain},
    {{"SHSTK", "shstk", 52}, kL7Ecx, 7, kAnyState, kPlain},
    {{"SGX", "sgx", 53}, kL7Ebx, 2, kAnyState, kPlain},
    {{"WBNOINVD", "wbnoinvd", 54}, kE8Ebx, 9, kAnyState, kPlain},
    {{"PCONFIG", "pconfig", 55}, kL7Edx, 18, kAnyState, kPlain},
    {{"AVX512_VP2INTERSECT", "avx512_vp2intersect", 56}, kL7Edx, 8, kZmm, kPlain},
    {{"AVX512_FP16", "avx512_fp16", 60}, kL7Edx, 23, kZmm, kPlain},
    {{"CLDEMOTE", "cldemote", 64}, kL7Ecx, 25, kAnyState, kPlain},
    {{"MOVDIRI", "movdiri", 65}, kL7Ecx, 27, kAnyState, kPlain},
    {{"MOVDIR64B", "movdir64b", 66}, kL7Ecx, 28, kAnyState, kPlain},
    {{"WAITPKG", "waitpkg", 67}, kL7Ecx, 5, kAnyState, kPlain},
    {{"AVX512_BF16", "avx512_bf16", 68}, kL71Eax, 5, kZmm, kPlain},
    {{"ENQCMD", "enqcmd", 69}, kL7Ecx, 29, kAnyState, kPlain},
    {{"AVX_VNNI", "avx_vnni", 70}, kL71Eax, 4, kYmm, kPlain},
    {{"AMX-TILE", "amx-tile", 71}, kL7Edx, 24, kTile, kPlain},
    {{"AMX-INT8", "amx-int8", 72}, kL7Edx, 25, kTile, kPlain},
    {{"AMX-BF16", "amx-bf16", 73}, kL7Edx, 22, kTile, kPlain},
    {{"KL", "kl", 74}, kL7Ecx, 23, kAnyState, kPlain},
    {{"WIDE-KL", "wide-kl", 75}, kL19Ebx, 2, kAnyState, kPlain},
    {{"HRESET", "hreset", 76}, kL71Eax, 22, kAnyState, kPlain},
    {{"UINTR", "uintr", 77}, kL7Edx, 5, kAnyState, kPlain},
    {{"PREFETCHI", "prefetchi", 78}, kL71Edx, 14, kAnyState, kPlain},
    {{"AVX_VNNI_INT8", "avx_vnni_int8", 79}, kL71Edx, 4, kYmm, kPlain},
    {{"CMPCCXADD", "cmpccxadd", 80}, kL71Eax, 7, kAnyState, kPlain},
    {{"AVX_IFMA", "avx_ifma", 81}, kL71Eax, 23, kYmm, kPlain},
    {{"AVX_NE_CONVERT", "avx_ne_convert", 82}, kL71Edx, 5, kYmm, kPlain},
    {{"RAO_INT", "rao_int", 83}, kL71Eax, 3, kAnyState, kPlain},
    {{"AMX-FP16", "amx-fp16", 84}, kL71Eax, 21, kTile, kPlain},
    {{"AMX-COMPLEX", "amx-complex", 85}, kL71Edx, 8, kTile, kPlain},
    {{"SHA512", "sha512", 86}, kL71Eax, 0, kYmm, kPlain},
    {{"SM3", "sm3", 87}, kL71Eax, 1, kYmm, kPlain},
    {{"SM4", "sm4", 88}, kL71Eax, 2, kYmm, kPlain},
    {{"AVX_VNNI_INT16", "avx_vnni_int16", 89}, kL71Edx, 10, kYmm, kPlain},
    {{"USER_MSR", "user_msr", 90}, kL71Edx, 15, kAnyState, kPlain},
    {{"AVX_10_1", "avx_10_1", 91}, kNone, 0, kYmm, kAvx10},
    {{"AVX_10_1_512", "avx_10_1_512", 92}, kNone, 0, kZmm, kAvx10Wide},
    {{"APXF", "apxf", 93}, kL71Edx, 21, kApx, kPlain},
    {{"MSRLIST", "msrlist", 94}, kL71Eax, 27, kAnyState, kPlain},
    {{"WRMSRNS", "wrmsrns", 95}, kL71Eax, 19, kAnyState, kPlain},
    {{"PBNDKB", "pbndkb", 96}, kL71Ebx, 1, kAnyState, kPlain},
};
constexpr int kFeatureCount = static_cast<int>(sizeof kFeatures / sizeof kFeatures[0]);

constexpr std::uint64_t bit_of(int b) {
  return std::uint64_t{1} << b;
}

// The groups that classification tests as a whole, in the order a missing member is named.
constexpr int kAvx2Members[] = {TVX_FEAT_AVX2, TVX_FEAT_FMA, TVX_FEAT_BMI, TVX_FEAT_LZCNT,
                                TVX_FEAT_PCLMULQDQ};
constexpr int kAvx512Members[] = {TVX_FEAT_AVX512F, TVX_FEAT_AVX512DQ, TVX_FEAT_AVX512BW,
                                  TVX_FEAT_AVX512VL};
template <std::size_t N>
constexpr std::uint64_t mask_of(const int (&members)[N]) {
  std::uint64_t m = 0;
  for (int b : members) m |= bit_of(b);
  return m;
}
constexpr std::uint64_t kAvx2Group = mask_of(kAvx2Members);
constexpr std::uint64_t kAvx512Group = mask_of(kAvx512Members);

// Registers read once per feature-word fill.
struct Snapshot {
  std::uint32_t reg[kRegCount] = {};
  std::uint64_t xcr0 = 0;
};

Snapshot take_snapshot() {
  Snapshot s;
  tvx_cpuid_regs r{};
  tvx_cpu_cpuid(0, 0, &r);
  const std::uint32_t max_leaf = r.eax;
  if (max_leaf >= 1) {
    tvx_cpu_cpuid(1, 0, &r);
    s.reg[kL1Ecx] = r.ecx;
    s.reg[kL1Edx] = r.edx;
  }
  if (max_leaf >= 7) {
    tvx_cpu_cpuid(7, 0, &r);
    s.reg[kL7Ebx] = r.ebx;
    s.reg[kL7Ecx] = r.ecx;
    s.reg[kL7Edx] = r.edx;
    if (r.eax >= 1) {
      tvx_cpu_cpuid(7, 1, &r);
      s.reg[kL71Eax] = r.eax;
      s.reg[kL71Ebx] = r.ebx;
      s.reg[kL71Edx] = r.edx;
    }
  }
  if (max_leaf >= 0x14) {
    tvx_cpu_cpuid(0x14, 0, &r);
    s.reg[kL14Ebx] = r.ebx;
  }
  if (max_leaf >= 0x19) {
    tvx_cpu_cpuid(0x19, 0, &r);
    s.reg[kL19Ebx] = r.ebx;
  }
  if (max_leaf >= 0x24 && (s.reg[kL71Edx] & (1u << 19)) != 0) {
    tvx_cpu_cpuid(0x24, 0, &r);
    s.reg[kL24Ebx] = r.ebx;
  }
  tvx_cpu_cpuid(0x80000000u, 0, &r);
  const std::uint32_t max_ext = r.eax;
  if (max_ext >= 0x80000001u && max_ext < 0x8000ffffu) {
    tvx_cpu_cpuid(0x80000001u, 0, &r);
    s.reg[kE1Ecx] = r.ecx;
  }
  if (max_ext >= 0x80000008u && max_ext < 0x8000ffffu) {
    tvx_cpu_cpuid(0x80000008u, 0, &r);
    s.reg[kE8Ebx] = r.ebx;
  }
  // XGETBV faults unless the operating system has enabled it (OSXSAVE, leaf 1 ECX bit 27).
  if ((s.reg[kL1Ecx] & (1u << 27)) != 0) s.xcr0 = g_xgetbv.load(std::memory_order_acquire)();
  return s;
}

bool os_saves(const Snapshot& s, OsState os) {
  auto all = [&s](std::uint64_t mask) { return (s.xcr0 & mask) == mask; };
  switch (os) {
    case kAnyState:
      return true;
    case kYmm:
      return all(0x6);
    case kZmm:
      return all(0xE6);
    case kTile:
      return all(0x60000);
    case kApx:
      return all(0x80000);
  }
  return false;
}

bool row_present(const Snapshot& s, const FeatureRow& f) {
  auto has = [&s](Reg r, int b) { return ((s.reg[r] >> b) & 1u) != 0; };
  bool present = false;
  switch (f.special) {
    case kPlain:
      present = f.reg != kNone && has(f.reg, f.reg_bit);
      break;
    case kBitManip:
      present = has(kL7Ebx, 3) && has(kL7Ebx, 8) && has(kE1Ecx, 5);
      break;
    case kAvx10:
      present = has(kL71Edx, 19) && (s.reg[kL24Ebx] & 0xFFu) >= 1;
      break;
    case kAvx10Wide:
      present = has(kL71Edx, 19) && (s.reg[kL24Ebx] & 0xFFu) >= 1 && has(kL24Ebx, 18);
      break;
  }
  return present && os_saves(s, f.os);
}

// Clears the features that ORVANE_ISA_DISABLE names (comma separated, lower case).
void apply_isa_disable(std::uint64_t words[2]) {
  char list[1024];
  if (tvx_getenv("ORVANE_ISA_DISABLE", list, sizeof list) <= 0) return;
  char* p = list;
  while (*p != '\0') {
    char* end = std::strchr(p, ',');
    if (end != nullptr) *end = '\0';
    if (*p != '\0') {
      const int b = tvx_cpu_feature_bit(p);
      if (b >= 0) words[b >> 6] &= ~bit_of(b & 63);
    }
    if (end == nullptr) break;
    p = end + 1;
  }
}

// Process-wide results; -1 means "not yet computed".
std::atomic<int> g_home_vendor{-1};
std::atomic<int> g_base_type{-1};
std::atomic<int> g_cpu_type{-1};
std::atomic<int> g_variant_index{-1};
std::atomic<int> g_rud_cpu_type{-1};
// Single CPUID bits that classification reads straight from the processor, each cached.
std::atomic<int> g_has_l71_eax21{-1};
std::atomic<int> g_has_l7_edx23{-1};
std::atomic<int> g_has_l71_eax5{-1};
std::atomic<int> g_has_l71_eax4{-1};
// Instruction limit.
volatile std::int32_t g_limit_lock = 0;
std::atomic<int> g_limit_parsed{0};
std::atomic<int> g_limit_code{-1};
std::atomic<unsigned> g_limit_flags{0};
std::atomic<int> g_limit_applied{0};

constexpr int kVariantOfCpuType[10] = {0, 1, 0, 0, 0, 2, 2, 3, 4, 5};
constexpr int kRudVariantOfCpuType[10] = {0, 1, 0, 0, 0, 2, 2, 3, 3, 4};

std::uint64_t features0() {
  if (tvx_cpu_features[0] == 0) tvx_cpu_has_feature(0);
  return tvx_cpu_features[0];
}
bool has_all(std::uint64_t mask) {
  return (features0() & mask) == mask;
}

// One bit of leaf 7 (sub-leaf 0 or 1, EAX or EDX), read once and cached.
bool cached_leaf7_bit(std::atomic<int>& cache, std::uint32_t subleaf, bool edx, int b) {
  int v = cache.load(std::memory_order_relaxed);
  if (v < 0) {
    tvx_cpuid_regs r{};
    tvx_cpu_cpuid(0, 0, &r);
    std::uint32_t word = 0;
    if (r.eax >= 7) {
      tvx_cpu_cpuid(7, 0, &r);
      if (subleaf <= r.eax) {
        tvx_cpu_cpuid(7, subleaf, &r);
        word = edx ? r.edx : r.eax;
      }
    }
    v = static_cast<int>((word >> b) & 1u);
    cache.store(v, std::memory_order_relaxed);
  }
  return v != 0;
}
bool has_amx_fp16_bit() {
  return cached_leaf7_bit(g_has_l71_eax21, 1, false, 21);
}
bool has_half_bit() {
  return cached_leaf7_bit(g_has_l7_edx23, 0, true, 23);
}
bool has_bfloat_bit() {
  return cached_leaf7_bit(g_has_l71_eax5, 1, false, 5);
}
bool has_avx_vnni_bit() {
  return cached_leaf7_bit(g_has_l71_eax4, 1, false, 4);
}

// The limit codes of TVX_ENABLE_INSTRUCTIONS, with the flags each sets (all others are cleared).
struct LimitRow {
  const char* word;
  int code;
  unsigned flags;
};
constexpr unsigned kAllFlags = 0x1FF;
constexpr LimitRow kLimits[] = {
    {"SSE4_2", 0, kAllFlags},
    {"AVX", 1, kAllFlags & ~TVX_NO_AVX},
    {"AVX2", 2, kAllFlags & ~(TVX_NO_AVX | TVX_NO_AVX2)},
    {"AVX512", 4,
     TVX_NO_CLASS16 | TVX_NO_CLASS14 | TVX_NO_CLASS12 | TVX_NO_CLASS10 | TVX_NO_CLASS9 |
         TVX_NO_CLASS15},
    {"AVX512_E1", 6,
     TVX_NO_CLASS16 | TVX_NO_CLASS14 | TVX_NO_CLASS12 | TVX_NO_CLASS10 | TVX_NO_CLASS15},
    {"AVX512_E2", 7, TVX_NO_CLASS16 | TVX_NO_CLASS14 | TVX_NO_CLASS12 | TVX_NO_CLASS15},
    {"AVX512_E3", 8, TVX_NO_CLASS16 | TVX_NO_CLASS14 | TVX_NO_CLASS10 | TVX_NO_CLASS15},
    {"AVX512_E4", 9, TVX_NO_CLASS16 | TVX_NO_CLASS15},
    {"AVX2_E1", 10,
     TVX_NO_AVX512 | TVX_NO_CLASS16 | TVX_NO_CLASS14 | TVX_NO_CLASS12 | TVX_NO_CLASS10 |
         TVX_NO_CLASS9},
    {"AVX512_E5", 11, TVX_NO_CLASS15},
};

// Whether this processor can honour limit `code`.
bool limit_supported(int code) {
  switch (code) {
    case 0:
      return tvx_cpu_has_feature(TVX_FEAT_SSE4_2) != 0;
    case 1:
      return tvx_cpu_has_feature(TVX_FEAT_AVX) != 0;
    case 2:
      return has_all(kAvx2Group);
    case 4:
      return has_all(kAvx512Group);
    case 6:
      return tvx_cpu_has_feature(TVX_FEAT_AVX512_VNNI) != 0;
    case 7:
      return tvx_cpu_has_feature(TVX_FEAT_AVX512F) && tvx_cpu_has_feature(TVX_FEAT_VAES) &&
             tvx_cpu_has_feature(TVX_FEAT_VPCLMULQDQ);
    case 8:
      return has_bfloat_bit();
    case 9:
      return has_half_bit();
    case 10:
      return has_avx_vnni_bit();
    case 11:
      return has_amx_fp16_bit();
    default:
      return false;
  }
}

unsigned limit_flags() {
  return g_limit_flags.load(std::memory_order_acquire);
}
bool flag(unsigned f) {
  return (limit_flags() & f) != 0;
}

// Reads TVX_KAZ_DEBUG_CPU_TYPE: the forced value, or -1 when unset or rejected. The name is put
// together at run time so that it does not stand in the binary as one string.
int debug_override() {
  static constexpr const char* kPieces[] = {"TVX", "_KAZ", "_DEBUG", "_CPU", "_TYPE"};
  char name[32];
  std::size_t at = 0;
  for (const char* piece : kPieces) {
    const std::size_t n = std::strlen(piece);
    std::memcpy(name + at, piece, n);
    at += n;
  }
  name[at] = '\0';
  char value[32];
  const int len = tvx_getenv(name, value, sizeof value);
  if (len <= 0) return -1;
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (!digit(value[0])) return -1;
  int v = value[0] - '0';
  if (len == 2) {
    if (!digit(value[1])) return -1;
    v = v * 10 + (value[1] - '0');
  }
  if (v >= 10 || v == 8) return -1;
  return v;
}

int cached_dispatch_number(std::atomic<int>& cache, bool to_variant) {
  const int cached = cache.load(std::memory_order_relaxed);
  if (cached != -1) return cached;
  const int forced = debug_override();
  if (forced >= 0) {
    cache.store(forced, std::memory_order_relaxed);
    return forced;
  }
  cache.store(-1, std::memory_order_relaxed);
  const int t = tvx_serv_get_kaz_cpu_type();
  if (t > 9) return t;
  const int result = to_variant ? kVariantOfCpuType[t] : t;
  cache.store(result, std::memory_order_relaxed);
  return result;
}

// Detection proper; the caller holds the detection lock. Returns 0 or an exit code.
int cpu_detect() {
  if (g_base_type.load(std::memory_order_relaxed) >= 0 &&
      g_cpu_type.load(std::memory_order_relaxed) >= 0) {
    return 0;
  }
  const int branch = tvx_cbwr_get_unlocked(1);
  int cls = -1;
  int level = -1;
  bool classify = branch == 1 || branch == 2;
  if (!classify) {
    switch (branch) {
      case 3:
        cls = level = 1;
        break;
      case 4:
      case 5:
      case 6:
      case 7:
        cls = level = 0;
        break;
      case 8:
      case 9:
        cls = level = 3;
        break;
      case 10:
        cls = level = 5;
        break;
      case 12:
        cls = level = 7;
        break;
      case 14:
        cls = 7;
        level = 9;
        break;
      default:
        tvx_serv_enable_instructions(nullptr);
        tvx_print_message(0, TVX_MSG_CBWR_WARNING, 0);
        classify = true;
        break;
    }
  }
  if (!classify) {
    // A pinned branch above the instruction limit gives way to classification when the feature
    // that the limit number names is present. The level and the limit are compared as they are.
    int limit = -1;
    tvx_serv_enable_instructions(&limit);
    if (limit >= 0 && level > limit) {
      bool feature = false;
      switch (limit) {
        case 3:
          feature = tvx_cpu_has_feature(TVX_FEAT_SSE4_2) != 0;
          break;
        case 4:
          feature = tvx_cpu_has_feature(TVX_FEAT_AVX) != 0;
          break;
        case 5:
          feature = has_all(kAvx2Group);
          break;
        case 7:
          feature = has_all(kAvx512Group);
          break;
        default:
          break;
      }
      classify = feature;
    }
  }
  if (classify) {
    int fatal = 0;
    const int raw = tvx_serv_cpu_classify(&fatal);
    if (fatal != 0) return 1;
    cls = tvx_serv_normalise_class(raw);
  }
  switch (cls) {
    case 0:
    case 1:
    case 3:
    case 5:
    case 7:
    case 9:
    case 10:
    case 12:
    case 14:
    case 15:
    case 16:
      break;
    default:
      return 1;
  }
  const int base = cls == 1 ? 0 : cls;
  const int type = cls > 1 ? cls + 2 : (cls == 1 ? 2 : 0);
  g_base_type.store(base, std::memory_order_relaxed);
  g_cpu_type.store(type, std::memory_order_relaxed);
  return 0;
}

int resolved(std::atomic<int>& cache) {
  int v = cache.load(std::memory_order_relaxed);
  if (v >= 0) return v;
  tvx_lock(&tvx_cpu_detect_lock);
  int code = 0;
  if (cache.load(std::memory_order_relaxed) < 0) code = cpu_detect();
  tvx_unlock(&tvx_cpu_detect_lock);
  if (code != 0) tvx_exit(code);
  return cache.load(std::memory_order_relaxed);
}

bool vendor_in(const char vendor[12], const char* list) {
  const std::size_t n = std::strlen(list);
  if (n == 0) return true;
  for (std::size_t at = 0; at + 12 <= n; at += 12) {
    if (std::memcmp(list + at, vendor, 12) == 0) return true;
  }
  return false;
}

// Code levels: 0 SSE2, 1 SSE4.2, 2 AVX2, 3 AVX-512. A level needs the groups that classification
// requires before it chooses that level's class (the SSE4.2 level, SSE4.2 itself), so code counts
// as runnable exactly where detection could choose it.
int level_missing_feature(int level) {
  if (level == 1 && !tvx_cpu_has_feature(TVX_FEAT_SSE4_2)) return TVX_FEAT_SSE4_2;
  if (level >= 2) {
    if (!tvx_cpu_has_feature(TVX_FEAT_AVX)) return TVX_FEAT_AVX;
    for (int b : kAvx2Members)
      if (!tvx_cpu_has_feature(b)) return b;
  }
  if (level >= 3) {
    for (int b : kAvx512Members)
      if (!tvx_cpu_has_feature(b)) return b;
  }
  return -1;
}

}  // namespace

extern "C" {

volatile std::uint64_t tvx_cpu_features[2] = {0, 0};
volatile std::int32_t tvx_cpu_detect_lock = 0;

void tvx_cpu_cpuid(std::uint32_t leaf, std::uint32_t subleaf, tvx_cpuid_regs* out) {
  g_cpuid.load(std::memory_order_acquire)(leaf, subleaf, out);
}

int tvx_cpu_feature_count(void) {
  return kFeatureCount;
}

const tvx_cpu_feature_row* tvx_cpu_feature_at(int row) {
  return row >= 0 && row < kFeatureCount ? &kFeatures[row].id : nullptr;
}

int tvx_cpu_feature_bit(const char* lower_name) {
  if (lower_name == nullptr) return -1;
  for (const FeatureRow& f : kFeatures) {
    if (std::strcmp(f.id.lower_name, lower_name) == 0) return f.id.bit;
  }
  return -1;
}

const char* tvx_cpu_feature_name(int bit) {
  for (const FeatureRow& f : kFeatures) {
    if (f.id.bit == bit) return f.id.name;
  }
  return nullptr;
}

int tvx_cpu_has_feature(int bit) {
  if (bit < 0 || bit >= 128) return 0;
  if (__atomic_load_n(&tvx_cpu_features[0], __ATOMIC_ACQUIRE) == 0) {
    const Snapshot s = take_snapshot();
    std::uint64_t words[2] = {0, 0};
    for (const FeatureRow& f : kFeatures) {
      if (row_present(s, f)) words[f.id.bit >> 6] |= bit_of(f.id.bit & 63);
    }
    apply_isa_disable(words);
    words[0] |= bit_of(TVX_FEAT_GENERIC_IA32);
    // Word 1 first: a reader that sees word 0 set sees the whole feature word.
    __atomic_store_n(&tvx_cpu_features[1], words[1], __ATOMIC_RELAXED);
    __atomic_store_n(&tvx_cpu_features[0], words[0], __ATOMIC_RELEASE);
  }
  const std::uint64_t w = __atomic_load_n(&tvx_cpu_features[bit >> 6], __ATOMIC_ACQUIRE);
  return static_cast<int>((w >> (bit & 63)) & 1u);
}

int tvx_serv_has_home_vendor(void) {
  int v = g_home_vendor.load(std::memory_order_relaxed);
  if (v < 0) {
    tvx_cpuid_regs r{};
    tvx_cpu_cpuid(0, 0, &r);
    char vendor[12];
    std::memcpy(vendor, &r.ebx, 4);
    std::memcpy(vendor + 4, &r.edx, 4);
    std::memcpy(vendor + 8, &r.ecx, 4);
    v = vendor_in(vendor, g_home_vendors.load(std::memory_order_acquire)) ? 1 : 0;
    g_home_vendor.store(v, std::memory_order_relaxed);
  }
  return v;
}

void tvx_serv_enable_instructions(int* limit_out) {
  if (g_limit_parsed.load(std::memory_order_acquire) == 0) {
    tvx_lock(&g_limit_lock);
    if (g_limit_parsed.load(std::memory_order_relaxed) == 0) {
      char value[30];
      if (tvx_getenv("TVX_ENABLE_INSTRUCTIONS", value, sizeof value) != 0) {
        int code = -1;
        unsigned flags = 0;
        for (const LimitRow& row : kLimits) {
          if (std::strcmp(value, row.word) == 0) {
            code = row.code;
            flags = row.flags;
            break;
          }
        }
        g_limit_code.store(code, std::memory_order_relaxed);
        if (code >= 0 && tvx_serv_has_home_vendor()) {
          if (code == 1) tvx_print_message(0, TVX_MSG_AVX_DEPRECATED, 0);
          if (limit_supported(code)) {
            g_limit_flags.store(flags, std::memory_order_relaxed);
            g_limit_applied.store(1, std::memory_order_relaxed);
          }
        }
      }
      g_limit_parsed.store(1, std::memory_order_release);
    }
    tvx_unlock(&g_limit_lock);
  }
  if (limit_out != nullptr) *limit_out = g_limit_code.load(std::memory_order_relaxed);
}

unsigned tvx_serv_isa_limit_flags(void) {
  tvx_serv_enable_instructions(nullptr);
  return limit_flags();
}

int tvx_serv_isa_limit_applied(void) {
  tvx_serv_enable_instructions(nullptr);
  return g_limit_applied.load(std::memory_order_relaxed);
}

int tvx_serv_cpu_classify(int* fatal_out) {
  if (fatal_out != nullptr) *fatal_out = 0;
  tvx_serv_enable_instructions(nullptr);
  if (!tvx_serv_has_home_vendor()) return 0;
  if (!flag(TVX_NO_AVX) && tvx_cpu_has_feature(TVX_FEAT_AVX)) {
    if (!has_all(kAvx2Group)) return 3;
    if (has_all(kAvx512Group) && !flag(TVX_NO_AVX512)) {
      if (!flag(TVX_NO_CLASS16) && has_amx_fp16_bit()) return 16;
      if (!flag(TVX_NO_CLASS14) && has_half_bit()) return 14;
      if (!flag(TVX_NO_CLASS12) && has_bfloat_bit()) return 12;
      if (!flag(TVX_NO_CLASS10) && tvx_cpu_has_feature(TVX_FEAT_AVX512F) &&
          tvx_cpu_has_feature(TVX_FEAT_VAES) && tvx_cpu_has_feature(TVX_FEAT_VPCLMULQDQ)) {
        return 10;
      }
      if (!flag(TVX_NO_CLASS9) && tvx_cpu_has_feature(TVX_FEAT_AVX512_VNNI)) return 9;
      return 7;
    }
    if (!flag(TVX_NO_CLASS15) && has_avx_vnni_bit()) return 15;
    return flag(TVX_NO_AVX2) ? 3 : 5;
  }
  if (tvx_cpu_has_feature(TVX_FEAT_SSE4_2)) return 3;
  if (tvx_cpu_has_feature(TVX_FEAT_SSE3) || tvx_cpu_has_feature(TVX_FEAT_SSSE3)) return 0;
  tvx_print_message(0, TVX_MSG_CPU_FATAL_1, 0);
  tvx_print_message(0, TVX_MSG_CPU_FATAL_2, 0);
  if (fatal_out != nullptr) *fatal_out = 1;
  return -1;
}

int tvx_serv_normalise_class(int raw) {
  switch (raw) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
    case 5:
    case 7:
      return raw;
    case 6:
    case 8:
    case 15:
      return 5;
    case 9:
    case 10:
    case 12:
    case 14:
    case 16:
      return 7;
    default:
      return -1;
  }
}

int tvx_serv_get_cpu_type(void) {
  return resolved(g_base_type);
}
int tvx_serv_get_kaz_cpu_type(void) {
  return resolved(g_cpu_type);
}

int tvx_kaz_variant_index(void) {
  return cached_dispatch_number(g_variant_index, true);
}
int tvx_rud_cpu_type(void) {
  return cached_dispatch_number(g_rud_cpu_type, false);
}

int tvx_rud_variant_of_cpu_type(int cpu_type) {
  return (cpu_type >= 0 && cpu_type < 10) ? kRudVariantOfCpuType[cpu_type] : 0;
}

int tvx_kaz_variant_of_cpu_type(int cpu_type) {
  return (cpu_type >= 0 && cpu_type < 10) ? kVariantOfCpuType[cpu_type] : 0;
}

int tvx_kaz_variant_missing_feature(int variant) {
  static constexpr int kLevel[6] = {0, 0, 1, 2, 0, 3};
  return level_missing_feature(variant >= 0 && variant < 6 ? kLevel[variant] : 0);
}

int tvx_rud_copy_missing_feature(int copy) {
  static constexpr int kLevel[5] = {0, 0, 1, 2, 3};
  return level_missing_feature(copy >= 0 && copy < 5 ? kLevel[copy] : 0);
}

void tvx_cpu_test_use_probe(tvx_cpuid_fn cpuid, tvx_xgetbv_fn xgetbv, const char* home_vendors) {
  tvx_lock(&tvx_cpu_detect_lock);
  g_cpuid.store(cpuid != nullptr ? cpuid : hardware_cpuid, std::memory_order_release);
  g_xgetbv.store(xgetbv != nullptr ? xgetbv : hardware_xgetbv, std::memory_order_release);
  g_home_vendors.store(home_vendors != nullptr ? home_vendors : TVX_HOME_VENDORS,
                       std::memory_order_release);
  __atomic_store_n(&tvx_cpu_features[0], 0, __ATOMIC_RELEASE);
  __atomic_store_n(&tvx_cpu_features[1], 0, __ATOMIC_RELEASE);
  for (std::atomic<int>* c :
       {&g_home_vendor, &g_base_type, &g_cpu_type, &g_variant_index, &g_rud_cpu_type,
        &g_has_l71_eax21, &g_has_l7_edx23, &g_has_l71_eax5, &g_has_l71_eax4, &g_limit_code}) {
    c->store(-1, std::memory_order_relaxed);
  }
  g_limit_flags.store(0, std::memory_order_relaxed);
  g_limit_applied.store(0, std::memory_order_relaxed);
  g_limit_parsed.store(0, std::memory_order_release);
  tvx_cbwr_test_reset();
  tvx_unlock(&tvx_cpu_detect_lock);
}

}  // extern "C"
