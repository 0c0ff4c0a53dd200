// tvx-info: what the library detects on this machine and the settings it will run with.
#include <cstdio>

#include "runtime/cpu_type.h"

int main() {
  std::printf("Tarvex library information\n");
  std::printf("  features         :");
  for (int bit = 0; bit < 128; ++bit) {
    if (tvx_cpu_has_feature(bit)) {
      const char* name = tvx_cpu_feature_name(bit);
      if (name != nullptr) std::printf(" %s", name);
    }
  }
  std::printf("\n");
  int fatal = 0;
  std::printf("  home vendor      : %s\n", tvx_serv_has_home_vendor() ? "yes" : "no");
  std::printf("  raw class        : %d\n", tvx_serv_cpu_classify(&fatal));
  std::printf("  base type        : %d\n", tvx_serv_get_cpu_type());
  std::printf("  CPU type         : %d\n", tvx_serv_get_kaz_cpu_type());
  std::printf("  vector variant   : %d\n", tvx_kaz_variant_index());
  std::printf("  random variant   : CPU type %d\n", tvx_rud_cpu_type());
  char name[32];
  std::printf("  reproducibility  : %s\n", tvx_cbwr_branch_name(tvx_cbwr_get(1), name, sizeof name));
  return 0;
}
