// The verbose line: with TVX_VERBOSE set, each random-number and stream export prints one line
// per call with its arguments, its duration and the settings in force, after a banner printed
// once per process. TVX_VERBOSE_OUTPUT_FILE sends the lines to a file instead of standard output.
#pragma once

#include <cstdint>
#include <cstdio>
#include <type_traits>

extern "C" {
// Pointer to the process-wide verbose level: 0, 1 or 2, read from TVX_VERBOSE on the first call.
std::uint32_t* tvx_verbose_mode(void);
// Processor time stamp in seconds (calibrated once against the wall clock).
double tvx_seconds(void);
// Processor frequency in GHz: from the brand string when it names one, else measured.
double tvx_cpu_ghz(void);
// Prints the line for one call: `iface` 1 prints "lp64", 2 "ilp64", -1 "cdecl" in the banner;
// `text` is the call with its arguments, `seconds` its duration.
void tvx_verbose_print(int iface, const char* text, double seconds);
// Writes `text` and a newline to standard output under the library's output lock.
void tvx_verbose_message(const char* text);
}

namespace tvx {

// Runs `body` (the kernel of an export, after its argument checks) and, when the verbose level
// is on, prints the verbose line for it. `format` and `args` build the call text printf-style
// (function name first, pointers as %p), cut at 256 characters. Returns what `body` returns.
template <class Body, class... Args>
auto verbose_wrap(Body&& body, const char* format, Args... args) -> decltype(body()) {
  using Result = decltype(body());
  double t = 0.0;
  if (*tvx_verbose_mode() != 0) t = -tvx_seconds();
  auto finish = [&]() {
    t += tvx_seconds();
    char text[257];
    if constexpr (sizeof...(Args) == 0) {
      std::snprintf(text, sizeof text, "%s", format);
    } else {
      std::snprintf(text, sizeof text, format, args...);
    }
    tvx_verbose_print(1, text, t);
  };
  if constexpr (std::is_void_v<Result>) {
    body();
    if (*tvx_verbose_mode() != 0) finish();
  } else {
    Result result = body();
    if (*tvx_verbose_mode() != 0) finish();
    return result;
  }
}

}  // namespace tvx
