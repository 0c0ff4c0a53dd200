// Verbose reporting: the level, the banner, the per-call line, and the processor clock that times
// the calls.
#include "runtime/verbose.h"

#include <omp.h>
#include <sys/utsname.h>
#include <time.h>
#include <x86intrin.h>

#include <atomic>
#include <cpuid.h>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "runtime/cpu_type.h"
#include "runtime/memory.h"
#include "runtime/report.h"
#include "runtime/settings.h"

namespace {

constexpr std::uint32_t kUnread = 0xFFFFFFFFu;
std::uint32_t g_level = kUnread;
volatile std::int32_t g_level_lock = 0;

volatile std::int32_t g_stdout_lock = 0;

// Output file: read once. State -1 unread, 0 standard output, 1 the file in g_file_name.
constexpr int kFileNameSize = 260;
std::atomic<int> g_file_state{-1};
char g_file_name[kFileNameSize];
volatile std::int32_t g_file_lock = 0;

std::atomic<int> g_banner_printed{0};
volatile std::int32_t g_banner_lock = 0;

constexpr int kLineSize = 400;
constexpr int kVersionYear = 2025;
constexpr int kUpdate = 0;
constexpr int kPatch = 1;
constexpr const char* kProductStatus = "Product";
constexpr const char* kBuildDate = "20241031";
constexpr const char* kPlatformWord = "Lnx";
constexpr const char* kThreadingLayer = "orvane_thread";

// Bounded append: what does not fit is cut, and the text stays terminated.
struct Line {
  char* buf;
  std::size_t cap;
  std::size_t len;
};

__attribute__((format(printf, 2, 3))) void append(Line* line, const char* format, ...) {
  if (line->len + 1 >= line->cap) return;
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(line->buf + line->len, line->cap - line->len, format, args);
  va_end(args);
  if (n < 0) return;
  line->len += static_cast<std::size_t>(n);
  if (line->len > line->cap - 1) line->len = line->cap - 1;
}

void write_stdout(const char* text) {
  tvx_lock(&g_stdout_lock);
  std::fputs(text, stdout);
  std::fflush(stdout);
  tvx_unlock(&g_stdout_lock);
}

void warn(const char* what) {
  char buf[160];
  std::snprintf(buf, sizeof buf, "TVX_VERBOSE WARNING: %s\n", what);
  write_stdout(buf);
}

void read_output_file() {
  if (g_file_state.load(std::memory_order_acquire) >= 0) return;
  tvx_lock(&g_file_lock);
  if (g_file_state.load(std::memory_order_relaxed) < 0) {
    int state = 0;
    if (std::getenv("TVX_VERBOSE_OUTPUT_FILE") != nullptr) {
      char buf[kFileNameSize];
      if (tvx_getenv("TVX_VERBOSE_OUTPUT_FILE", buf, kFileNameSize) <= 0) {
        warn("incorrect output filename: too long or empty");
      } else {
        std::memcpy(g_file_name, buf, sizeof buf);
        // Opened once now so that a bad name shows at once rather than on every line.
        std::FILE* f = std::fopen(g_file_name, "a");
        if (f == nullptr) {
          warn("Unable to open verbose output file.");
        } else {
          std::fclose(f);
          state = 1;
        }
      }
    }
    g_file_state.store(state, std::memory_order_release);
  }
  tvx_unlock(&g_file_lock);
}

// Sends one finished text to the output file, or to standard output.
void emit(const char* text) {
  read_output_file();
  if (g_file_state.load(std::memory_order_acquire) == 1) {
    std::FILE* f = std::fopen(g_file_name, "a");
    if (f != nullptr) {
      std::fputs(text, f);
      std::fclose(f);
      return;
    }
    warn("unable to open output file. Print to STDOUT");
  }
  write_stdout(text);
}

const char* interface_name(int iface, char* buf, std::size_t size) {
  switch (iface) {
    case 1:
      return "lp64";
    case 2:
      return "ilp64";
    case -1:
      return "cdecl";
    default:
      std::snprintf(buf, size, "iface%x", static_cast<unsigned>(iface));
      return buf;
  }
}

// The processor's own name from the kernel, or an empty text.
void model_name(char* out, std::size_t size) {
  out[0] = '\0';
  std::FILE* f = std::fopen("/proc/cpuinfo", "r");
  if (f == nullptr) return;
  char row[512];
  while (std::fgets(row, sizeof row, f) != nullptr) {
    if (std::strncmp(row, "model name", 10) != 0) continue;
    const char* v = std::strchr(row, ':');
    if (v == nullptr) break;
    ++v;
    while (*v == ' ' || *v == '\t') ++v;
    std::size_t n = std::strcspn(v, "\n");
    while (n > 0 && v[n - 1] == ' ') --n;
    if (n >= size) n = size - 1;
    std::memcpy(out, v, n);
    out[n] = '\0';
    break;
  }
  std::fclose(f);
}

// What the processor runs, by class: the base type picks the group, the raw class refines it.
const char* class_text(int* class_out) {
  int fatal = 0;
  int c = 0;
  if (tvx_serv_has_home_vendor() == 0) {
    *class_out = -1;
    return "processor of another vendor, running the base SSE2 code";
  }
  const int base = tvx_serv_get_cpu_type();
  if (base == 7) {
    const int raw = tvx_serv_cpu_classify(&fatal);
    c = (raw == 16 || raw == 14 || raw == 12 || raw == 10 || raw == 9) ? raw : 7;
  } else if (base == 5) {
    c = tvx_serv_cpu_classify(&fatal) == 15 ? 15 : 5;
  } else {
    c = base == 3 ? 3 : 0;
  }
  *class_out = c;
  switch (c) {
    case 16:
      return "AVX-512 processor with the leaf 7.1 EAX bit 21 extension";
    case 14:
      return "AVX-512 processor with half-precision arithmetic";
    case 12:
      return "AVX-512 processor with bfloat16 arithmetic";
    case 10:
      return "AVX-512 processor with VAES and VPCLMULQDQ";
    case 9:
      return "AVX-512 processor with VNNI";
    case 7:
      return "AVX-512 (F, CD, BW, DQ, VL) processor";
    case 15:
      return "AVX2 and FMA processor with AVX-VNNI";
    case 5:
      return "AVX2 and FMA processor";
    case 3:
      return "SSE4.2 processor";
    default:
      return "SSE3 processor";
  }
}

void print_banner(int iface) {
  if (g_banner_printed.load(std::memory_order_acquire) != 0) return;
  char buf[kLineSize];
  buf[0] = '\0';
  Line line{buf, sizeof buf, 0};
  append(&line, "TVX_VERBOSE Tarvex %d", kVersionYear);
  if (kUpdate > 0) append(&line, " Update %d", kUpdate);
  if (kPatch > 0) append(&line, " Patch %d", kPatch);

  utsname names;
  const char* platform = "Orvane(R) 64 architecture";
  if (uname(&names) == 0 && std::strcmp(names.machine, "x86_64") != 0) platform = names.machine;
  int cls = 0;
  const char* isa = class_text(&cls);
  char model[128];
  model_name(model, sizeof model);
  char description[256];
  if (cls >= 0) {
    std::snprintf(description, sizeof description, "%s%s%s (class %d)", model,
                  model[0] != '\0' ? ", " : "", isa, cls);
  } else {
    std::snprintf(description, sizeof description, "%s%s%s", model, model[0] != '\0' ? ", " : "",
                  isa);
  }
  append(&line, " %s build %s for %s %s", kProductStatus, kBuildDate, platform, description);
  append(&line, ", %s", kPlatformWord);
  append(&line, " %.2fGHz", tvx_cpu_ghz());
  char iface_buf[24];
  if (iface != 0) append(&line, " %s", interface_name(iface, iface_buf, sizeof iface_buf));
  append(&line, " %s", kThreadingLayer);

  tvx_lock(&g_banner_lock);
  if (g_banner_printed.load(std::memory_order_relaxed) == 0) {
    char out[kLineSize + 2];
    std::snprintf(out, sizeof out, "%s\n", buf);
    emit(out);
    g_banner_printed.store(1, std::memory_order_release);
  }
  tvx_unlock(&g_banner_lock);
}

// ---- Clock -------------------------------------------------------------------------------------

std::atomic<double> g_tsc_hz{-1.0};
std::atomic<double> g_cpu_ghz{-1.0};

double monotonic_seconds() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC_RAW, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

inline std::uint64_t read_tsc() {
  // LFENCE orders the read after earlier instructions, as a serialising CPUID would, without the
  // exit to the hypervisor that CPUID costs in a virtual machine.
  _mm_lfence();
  return __rdtsc();
}

// Frequency named at the end of the brand string ("... @ 2.90GHz"), in MHz; 0 when none.
double brand_mhz() {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (__get_cpuid(0x80000000u, &eax, &ebx, &ecx, &edx) == 0 || eax < 0x80000004u) return 0.0;
  unsigned regs[4];
  __cpuid(0x80000004u, regs[0], regs[1], regs[2], regs[3]);
  char s[17];
  std::memcpy(s, regs, 16);
  s[16] = '\0';
  auto digit = [](char ch) { return ch >= '0' && ch <= '9'; };
  for (int i = 4; i <= 13; ++i) {
    double factor = 0.0;
    if (s[i] == 'M') factor = 1.0;
    if (s[i] == 'G') factor = 1000.0;
    if (s[i] == 'T') factor = 1000000.0;
    if (factor == 0.0 || s[i + 1] != 'H' || s[i + 2] != 'z') continue;
    const char* n = s + i - 4;
    if (digit(n[0]) && n[1] == '.' && digit(n[2]) && digit(n[3])) {
      return (n[0] - '0') * factor + (n[2] - '0') * factor / 10 + (n[3] - '0') * factor / 100;
    }
    if (digit(n[0]) && digit(n[1]) && digit(n[2]) && digit(n[3])) {
      return (n[0] - '0') * 1000.0 + (n[1] - '0') * 100.0 + (n[2] - '0') * 10.0 + (n[3] - '0');
    }
    return 0.0;
  }
  return 0.0;
}

// Cycles per second from a loop of dependent decrements, one per cycle.
double measured_hz() {
  for (;;) {
    double best = 0.0;
    bool negative = false;
    for (int round = 0; round < 3; ++round) {
      std::uint64_t n = 1000000;
      const double t0 = monotonic_seconds();
      __asm__ volatile("1:\n\tdec %0\n\tjnz 1b" : "+r"(n) : : "cc");
      const double d = monotonic_seconds() - t0;
      if (d < 0.0) negative = true;
      if (round == 0 || d < best) best = d;
    }
    if (!negative && best > 0.0) return 1e6 / best;
  }
}

double calibrate_tsc_hz() {
  const double t0 = monotonic_seconds();
  const std::uint64_t s0 = read_tsc();
  const std::clock_t c0 = std::clock();
  if (c0 != static_cast<std::clock_t>(-1)) {
    // 100 ticks of processor time, with a wall-clock guard for a process that is not scheduled.
    while (std::clock() - c0 < 100 && monotonic_seconds() - t0 < 0.5) {
    }
  }
  const double t1 = monotonic_seconds();
  const std::uint64_t s1 = read_tsc();
  const double seconds = t1 - t0;
  if (seconds < 0.0001 || s1 == s0) return tvx_cpu_ghz() * 1e9;
  return static_cast<double>(s1 - s0) / seconds;
}

}  // namespace

extern "C" {

std::uint32_t* tvx_verbose_mode(void) {
  if (__atomic_load_n(&g_level, __ATOMIC_ACQUIRE) == kUnread) {
    tvx_lock(&g_level_lock);
    if (__atomic_load_n(&g_level, __ATOMIC_RELAXED) == kUnread) {
      char buf[128];
      std::uint32_t level = 0;
      if (tvx_getenv("TVX_VERBOSE", buf, sizeof buf) > 0) {
        char* end = nullptr;
        const long v = std::strtol(buf, &end, 0);
        if (end != buf && *end == '\0' && v >= 0 && v <= 2) level = static_cast<std::uint32_t>(v);
      }
      __atomic_store_n(&g_level, level, __ATOMIC_RELEASE);
    }
    tvx_unlock(&g_level_lock);
  }
  return &g_level;
}

double tvx_cpu_ghz(void) {
  double ghz = g_cpu_ghz.load(std::memory_order_relaxed);
  if (ghz > 0.0) return ghz;
  const double mhz = brand_mhz();
  ghz = mhz > 0.0 ? 0.001 * mhz : 1e-9 * measured_hz();
  g_cpu_ghz.store(ghz, std::memory_order_relaxed);
  return ghz;
}

double tvx_seconds(void) {
  double hz = g_tsc_hz.load(std::memory_order_relaxed);
  if (hz <= 0.0) {
    hz = calibrate_tsc_hz();
    g_tsc_hz.store(hz, std::memory_order_relaxed);
  }
  return static_cast<double>(read_tsc()) / hz;
}

void tvx_verbose_message(const char* text) {
  char buf[kLineSize];
  std::snprintf(buf, sizeof buf, "%s\n", text != nullptr ? text : "");
  write_stdout(buf);
}

void tvx_verbose_print(int iface, const char* text, double seconds) {
  char buf[kLineSize];
  buf[0] = '\0';
  Line line{buf, sizeof buf, 0};
  double t = seconds;
  if (!(t > 0.0)) {
    append(&line, "%.2fs", 0.0);
  } else if (t > 1.0) {
    append(&line, "%.2fs", t);
  } else if ((t *= 1000.0) > 1.0) {
    append(&line, "%.2fms", t);
  } else if ((t *= 1000.0) > 1.0) {
    append(&line, "%.2fus", t);
  } else {
    append(&line, "%.0fns", t * 1000.0);
  }

  char cnr[32];
  append(&line, " CNR:%s", tvx_cbwr_branch_name(tvx_cbwr_get(1), cnr, sizeof cnr));
  if ((tvx_cbwr_get(-1) & 0x10000) != 0) append(&line, ",STRICT");
  append(&line, " Dyn:%d", tvx_get_dynamic());
  append(&line, " FastMM:%d", tvx_fast_mm_enabled());
  append(&line, " TID:%-2d", omp_get_thread_num());
  const int all = tvx_get_max_threads();
  append(&line, " NThr:%d", all);
  static constexpr struct {
    int domain;
    const char* format;
  } kDomains[] = {{TVX_DOMAIN_BLAS, ",BLAS:%d"},
                  {TVX_DOMAIN_FFT, ",FFT:%d"},
                  {TVX_DOMAIN_KAZ, ",KAZ:%d"},
                  {TVX_DOMAIN_QUARTZ, ",QUARTZ:%d"}};
  for (const auto& d : kDomains) {
    const int n = tvx_domain_max_threads(d.domain);
    if (n != all) append(&line, d.format, n);
  }

  print_banner(iface);

  char out[kLineSize + 300];
  std::snprintf(out, sizeof out, "TVX_VERBOSE %s %s\n", text != nullptr ? text : "", buf);
  emit(out);
}

}  // extern "C"
