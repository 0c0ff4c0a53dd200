// tvx-info: what the library detects on this machine and the settings it will run with.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runtime/cpu_probe.h"
#include "runtime/cpu_type.h"

namespace {

const char* const kVectorVariantNames[6] = {"sse2", "sse2b", "sse42", "avx2", "(none)", "avx512"};
const char* const kRudVariantNames[5] = {"base", "compatibility", "SSE4.2", "AVX2", "AVX-512"};

// Every environment variable that the library reads.
const char* const kSettings[] = {
    "TVX_CBWR",
    "TVX_ENABLE_INSTRUCTIONS",
    "TVX_KAZ_DEBUG_CPU_TYPE",
    "ORVANE_ISA_DISABLE",
    "TVX_NUM_THREADS",
    "TVX_NUM_STRIPES",
    "TVX_DOMAIN_NUM_THREADS",
    "TVX_DYNAMIC",
    "OMP_NUM_THREADS",
    "TVX_MPI_PPN",
    "TVX_KAZ_MODE",
    "TVX_VERBOSE",
    "TVX_VERBOSE_OUTPUT_FILE",
    "TVX_DISABLE_FAST_MM",
    "TVX_FAST_MEMORY_LIMIT",
};

void print_vendor() {
  tvx_cpuid_regs r{};
  tvx_cpu_cpuid(0, 0, &r);
  char vendor[13];
  std::memcpy(vendor, &r.ebx, 4);
  std::memcpy(vendor + 4, &r.edx, 4);
  std::memcpy(vendor + 8, &r.ecx, 4);
  vendor[12] = '\0';
  std::printf("  vendor           : %s (%s)\n", vendor,
              tvx_serv_has_home_vendor() ? "home vendor" : "other vendor: base code only");
}

void print_limit() {
  static const char* const kFlagNames[9] = {"no_avx",     "no_avx2",    "no_avx512",
                                            "no_class16", "no_class14", "no_class12",
                                            "no_class10", "no_class9",  "no_class15"};
  int limit = -1;
  tvx_serv_enable_instructions(&limit);
  if (limit < 0) {
    std::printf("  instruction limit: none\n");
    return;
  }
  std::printf("  instruction limit: code %d, %s", limit,
              tvx_serv_isa_limit_applied() ? "applied:" : "not honoured by this processor");
  const unsigned flags = tvx_serv_isa_limit_flags();
  for (int i = 0; i < 9; ++i) {
    if ((flags >> i) & 1u) std::printf(" %s", kFlagNames[i]);
  }
  std::printf("\n");
}

// One line: the variants this machine runs, for summaries such as the one of `make demo`.
void print_variant_line() {
  const int variant = tvx_kaz_variant_index();
  const int rud = tvx_rud_cpu_type();
  std::printf("%s vector kernels, %s copy of the random and statistics code (CPU type %d)\n",
              variant >= 0 && variant < 6 ? kVectorVariantNames[variant] : "?",
              kRudVariantNames[tvx_rud_variant_of_cpu_type(rud)], rud);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--variant") == 0) {
    print_variant_line();
    return 0;
  }
  if (argc > 1) {
    const bool help = std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0;
    std::fprintf(help ? stdout : stderr,
                 "usage: tvx-info [--variant]\n"
                 "  Prints the processor features the library detects, the variants it runs and\n"
                 "  the settings in force; --variant prints only the variants, on one line.\n");
    return help ? 0 : 2;
  }
  std::printf("Tarvex library information\n");
  print_vendor();
  std::printf("  features         :");
  int column = 21;
  for (int bit = 0; bit < 128; ++bit) {
    if (!tvx_cpu_has_feature(bit)) continue;
    const char* name = tvx_cpu_feature_name(bit);
    if (name == nullptr) continue;
    const int width = static_cast<int>(std::strlen(name)) + 1;
    if (column + width > 100) {
      std::printf("\n                    ");
      column = 21;
    }
    std::printf(" %s", name);
    column += width;
  }
  std::printf("\n");

  int fatal = 0;
  const int raw = tvx_serv_cpu_classify(&fatal);
  std::printf("  raw class        : %d (normalised %d)\n", raw, tvx_serv_normalise_class(raw));
  const int word = tvx_cbwr_get(-1);
  char name[32];
  std::printf("  reproducibility  : %s%s (word 0x%x)\n",
              tvx_cbwr_branch_name(word & TVX_CBWR_BRANCH_MASK, name, sizeof name),
              (word & TVX_CBWR_STRICT) ? ", strict" : "", static_cast<unsigned>(word));
  print_limit();
  std::printf("  base type        : %d\n", tvx_serv_get_cpu_type());
  std::printf("  CPU type         : %d\n", tvx_serv_get_kaz_cpu_type());
  const int variant = tvx_kaz_variant_index();
  std::printf("  vector variant   : %d (%s)\n", variant,
              variant >= 0 && variant < 6 ? kVectorVariantNames[variant] : "?");
  const int rud = tvx_rud_cpu_type();
  std::printf("  random variant   : CPU type %d (%s copy)\n", rud,
              kRudVariantNames[tvx_rud_variant_of_cpu_type(rud)]);

  std::printf("  environment      :");
  bool any = false;
  for (const char* setting : kSettings) {
    const char* value = std::getenv(setting);
    if (value == nullptr) continue;
    std::printf("\n    %s=%s", setting, value);
    any = true;
  }
  std::printf("%s\n", any ? "" : " no settings, defaults in force");
  return 0;
}
