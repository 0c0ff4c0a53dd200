// Provisional verbose reporting: level parsing and a plain line. The full line format and banner
// replace this file.
#include "runtime/verbose.h"

#include <time.h>

#include <cstdlib>

#include "runtime/report.h"

extern "C" {

std::uint32_t* tvx_verbose_mode(void) {
  static std::uint32_t level = 0xFFFFFFFFu;
  if (level == 0xFFFFFFFFu) {
    char buf[128];
    std::uint32_t v = 0;
    if (tvx_getenv("TVX_VERBOSE", buf, sizeof buf) > 0) {
      char* end = nullptr;
      long x = std::strtol(buf, &end, 0);
      if (end != nullptr && *end == '\0' && x >= 0 && x <= 2) v = static_cast<std::uint32_t>(x);
    }
    level = v;
  }
  return &level;
}

double tvx_seconds(void) {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

double tvx_cpu_ghz(void) { return 0.0; }

void tvx_verbose_print(int, const char* text, double seconds) {
  std::printf("TVX_VERBOSE %s %.2fs\n", text, seconds);
  std::fflush(stdout);
}

}  // extern "C"
