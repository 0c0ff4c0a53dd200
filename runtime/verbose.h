// The verbose line: with TVX_VERBOSE set, each random-number and stream export prints one line
// per call with its arguments, its duration and the settings in force.
#pragma once

#include <cstdio>
#include <cstdint>

extern "C" {
// Pointer to the process-wide verbose level (read on first call; 0, 1 or 2).
std::uint32_t* tvx_verbose_mode(void);
// Processor time stamp in seconds.
double tvx_seconds(void);
double tvx_cpu_ghz(void);
// Prints the line for one call: `iface` 1 prints "lp64"; `text` is the call with its arguments.
void tvx_verbose_print(int iface, const char* text, double seconds);
}

namespace tvx {

// Runs `body` and, when the verbose level is on, prints the verbose line for it. `format` and
// `args` build the call text printf-style (function name first), up to 256 characters.
template <class Body, class... Args>
auto verbose_wrap(Body&& body, const char* format, Args... args) -> decltype(body()) {
  const std::uint32_t level = *tvx_verbose_mode();
  double t = 0.0;
  if (level != 0) t = -tvx_seconds();
  auto result = body();
  if (*tvx_verbose_mode() == 0) return result;
  t += tvx_seconds();
  char text[257];
  std::snprintf(text, sizeof text, format, args...);
  tvx_verbose_print(1, text, t);
  return result;
}

}  // namespace tvx
