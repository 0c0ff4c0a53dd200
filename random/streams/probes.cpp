// Default processor probes of the counter-based and hardware generators (compiled once).
#include "random/streams/probes.h"

#include <cpuid.h>
#include <immintrin.h>

#include "runtime/cpu_type.h"
#include "tvx_random.h"

namespace tvx::rud::probes {
namespace {

int aes_from_features() {
  return tvx_cpu_has_feature(TVX_FEAT_AES);
}

int rdrand_from_cpuid() {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return 0;
  return (ecx >> 30) & 1u;
}

__attribute__((target("rdrnd"))) int rdrand64_instruction(unsigned long long* word) {
  return _rdrand64_step(word);
}

}  // namespace

int (*aes_supported)(void) = aes_from_features;
int (*rdrand_supported)(void) = rdrand_from_cpuid;
int (*rdrand64)(unsigned long long* word) = rdrand64_instruction;

}  // namespace tvx::rud::probes

namespace tvx::rud {

int row_availability(int row) {
  if (row == 13 && probes::rdrand_supported() == 0) return RUD_RNG_ERROR_NONDETERM_NOT_SUPPORTED;
  if (row == 14 && probes::aes_supported() == 0) return RUD_RNG_ERROR_ARS5_NOT_SUPPORTED;
  return RUD_STATUS_OK;
}

}  // namespace tvx::rud
