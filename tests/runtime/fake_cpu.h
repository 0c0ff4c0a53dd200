// Synthetic processors for detection tests: a CPUID table and an XCR0 value that replace the real
// processor through the probe hook, so classification can be run on machines we do not have.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>

#include "runtime/cpu_probe.h"
#include "runtime/cpu_type.h"
#include "support/subprocess.h"

namespace tvx::test {

enum class R { eax, ebx, ecx, edx };

class FakeCpu {
 public:
  explicit FakeCpu(const char* vendor = "TarvexTestCo") {
    tvx_cpuid_regs& l0 = leaves_[{0, 0}];
    l0.eax = 0x24;
    std::memcpy(&l0.ebx, vendor, 4);
    std::memcpy(&l0.edx, vendor + 4, 4);
    std::memcpy(&l0.ecx, vendor + 8, 4);
    leaves_[{7, 0}].eax = 1;
    leaves_[{0x80000000u, 0}].eax = 0x80000008u;
    set(1, 0, R::edx, {0, 15, 23, 24, 25, 26});  // x87, CMOV, MMX, FXSR, SSE, SSE2
  }
  FakeCpu& set(std::uint32_t leaf, std::uint32_t sub, R r, std::initializer_list<int> bits) {
    for (int b : bits) reg(leaf, sub, r) |= 1u << b;
    return *this;
  }
  FakeCpu& clear(std::uint32_t leaf, std::uint32_t sub, R r, int b) {
    reg(leaf, sub, r) &= ~(1u << b);
    return *this;
  }
  FakeCpu& xcr0(std::uint64_t v) {
    xcr0_ = v;
    return *this;
  }

  // Profiles, each adding to the one before.
  FakeCpu& sse3() { return set(1, 0, R::ecx, {0}); }
  FakeCpu& sse42() { return sse3().set(1, 0, R::ecx, {9, 19, 20}); }
  FakeCpu& avx() { return sse42().set(1, 0, R::ecx, {27, 28}).xcr0(0x7); }
  FakeCpu& avx2() {  // PCLMULQDQ, FMA; BMI1, AVX2, BMI2; LZCNT
    return avx()
        .set(1, 0, R::ecx, {1, 12})
        .set(7, 0, R::ebx, {3, 5, 8})
        .set(0x80000001u, 0, R::ecx, {5});
  }
  // F, DQ, BW, VL with the opmask and ZMM state enabled
  FakeCpu& avx512() { return avx2().set(7, 0, R::ebx, {16, 17, 30, 31}).xcr0(0xE7); }
  FakeCpu& vnni() { return set(7, 0, R::ecx, {11}); }
  FakeCpu& vaes() { return set(7, 0, R::ecx, {9, 10}); }
  FakeCpu& bf16() { return set(7, 1, R::eax, {5}); }
  FakeCpu& fp16() { return set(7, 0, R::edx, {23}); }
  FakeCpu& amx_fp16() { return set(7, 1, R::eax, {21}); }
  FakeCpu& avx_vnni() { return set(7, 1, R::eax, {4}); }
  // Everything classification can use.
  FakeCpu& full() { return avx512().vnni().vaes().bf16().fp16().amx_fp16().avx_vnni(); }

  // Makes this the processor that detection sees, with `home` as the home-vendor list, and
  // forgets every cached result.
  void install(const char* home = "TarvexTestCo") const {
    current() = this;
    tvx_cpu_test_use_probe(&cpuid, &xgetbv, home);
  }
  static void uninstall() {
    tvx_cpu_test_use_probe(nullptr, nullptr, nullptr);
    current() = nullptr;
  }
  static int xgetbv_calls() { return xgetbv_calls_; }

 private:
  std::uint32_t& reg(std::uint32_t leaf, std::uint32_t sub, R r) {
    tvx_cpuid_regs& x = leaves_[{leaf, sub}];
    std::uint32_t* regs[] = {&x.eax, &x.ebx, &x.ecx, &x.edx};
    return *regs[static_cast<int>(r)];
  }
  static const FakeCpu*& current() {
    static const FakeCpu* cpu = nullptr;
    return cpu;
  }
  static void cpuid(std::uint32_t leaf, std::uint32_t sub, tvx_cpuid_regs* out) {
    const auto& leaves = current()->leaves_;
    auto it = leaves.find({leaf, sub});
    *out = it == leaves.end() ? tvx_cpuid_regs{0, 0, 0, 0} : it->second;
  }
  static std::uint64_t xgetbv() {
    ++xgetbv_calls_;
    return current()->xcr0_;
  }

  std::map<std::pair<std::uint32_t, std::uint32_t>, tvx_cpuid_regs> leaves_;
  std::uint64_t xcr0_ = 0;
  static inline int xgetbv_calls_ = 0;
};

// What detection decided, as one line: raw class, base type, CPU type, vector variant, random CPU
// type, reproducibility word and instruction limit.
inline std::string detection_summary() {
  int fatal = 0;
  const int raw = tvx_serv_cpu_classify(&fatal);
  int limit = -1;
  tvx_serv_enable_instructions(&limit);
  char line[160];
  std::snprintf(line, sizeof line, "%d %d %d %d %d 0x%x %d", raw, tvx_serv_get_cpu_type(),
                tvx_serv_get_kaz_cpu_type(), tvx_kaz_variant_index(), tvx_rud_cpu_type(),
                static_cast<unsigned>(tvx_cbwr_get(-1)), limit);
  return line;
}

// The variables detection reads, all unset, followed by `extra`.
inline Env clean_env(const Env& extra = {}) {
  Env env = {{"TVX_CBWR", nullptr},
             {"TVX_ENABLE_INSTRUCTIONS", nullptr},
             {"TVX_KAZ_DEBUG_CPU_TYPE", nullptr},
             {"ORVANE_ISA_DISABLE", nullptr}};
  env.insert(env.end(), extra.begin(), extra.end());
  return env;
}

// Runs `body` in a child process on processor `cpu` with environment `extra`.
template <class Body>
ChildResult on_cpu(const FakeCpu& cpu, const Env& extra, Body body,
                   const char* home = "TarvexTestCo") {
  return run_in_child(clean_env(extra), [&] {
    cpu.install(home);
    return body();
  });
}

// The detection summary of `cpu` under environment `extra`, printed last by the child.
inline ChildResult detect_on(const FakeCpu& cpu, const Env& extra) {
  return on_cpu(cpu, extra, [] { return std::printf("%s\n", detection_summary().c_str()) < 0; });
}

}  // namespace tvx::test
