// Internal view of processor detection: the CPUID source, the detection lock shared with the
// reproducibility parse, the instruction-limit flags, and hooks that let tests run detection on a
// synthetic processor. Nothing here is exported from the shared library.
#pragma once

#include <cstdint>

extern "C" {

struct tvx_cpuid_regs {
  std::uint32_t eax, ebx, ecx, edx;
};
// Executes CPUID for (leaf, subleaf).
typedef void (*tvx_cpuid_fn)(std::uint32_t leaf, std::uint32_t subleaf, tvx_cpuid_regs* out);
// Reads XCR0. Only called when CPUID reports OSXSAVE.
typedef std::uint64_t (*tvx_xgetbv_fn)(void);

// One spin lock for CPU type detection and the reproducibility parse.
extern volatile std::int32_t tvx_cpu_detect_lock;

// CPUID through the current source (the processor itself unless a test replaced it).
void tvx_cpu_cpuid(std::uint32_t leaf, std::uint32_t subleaf, tvx_cpuid_regs* out);

// One row of the feature table.
struct tvx_cpu_feature_row {
  const char* name;        // upper case, as printed
  const char* lower_name;  // the key accepted by ORVANE_ISA_DISABLE
  int bit;
};
int tvx_cpu_feature_count(void);
const tvx_cpu_feature_row* tvx_cpu_feature_at(int row);
// Bit of a lower-case feature name, or -1.
int tvx_cpu_feature_bit(const char* lower_name);

// Instruction-limit flags, one bit each, in this order.
enum : unsigned {
  TVX_NO_AVX = 1u << 0,
  TVX_NO_AVX2 = 1u << 1,
  TVX_NO_AVX512 = 1u << 2,
  TVX_NO_CLASS16 = 1u << 3,
  TVX_NO_CLASS14 = 1u << 4,
  TVX_NO_CLASS12 = 1u << 5,
  TVX_NO_CLASS10 = 1u << 6,
  TVX_NO_CLASS9 = 1u << 7,
  TVX_NO_CLASS15 = 1u << 8,
};
// Current flags (after tvx_serv_enable_instructions has run, or 0).
unsigned tvx_serv_isa_limit_flags(void);
// Nonzero when the parsed instruction limit was honoured by this processor.
int tvx_serv_isa_limit_applied(void);

// Normalised class of a raw class, or -1 for a value with no row.
int tvx_serv_normalise_class(int raw);

// Reproducibility word without taking the detection lock (the caller holds it or does not care).
int tvx_cbwr_get_unlocked(int what);
// Whether branch word `word` can run here: 0 yes, negative no.
int tvx_cbwr_check(std::uint32_t word);

// ---- Test hooks --------------------------------------------------------------------------------
// Replaces the processor that detection sees. Null `cpuid` restores the real processor (and null
// `xgetbv` the real XGETBV). `home_vendors` is the concatenation of twelve-byte vendor strings that
// count as home ("" means every vendor); null restores the build's list. Every cached result of
// detection and of the reproducibility parse is forgotten, so the environment is read again.
void tvx_cpu_test_use_probe(tvx_cpuid_fn cpuid, tvx_xgetbv_fn xgetbv, const char* home_vendors);
// Forgets the reproducibility word only.
void tvx_cbwr_test_reset(void);
// Forces the reproducibility word, as if parsed.
void tvx_cbwr_test_set(std::uint32_t word);

}  // extern "C"
