// Linked into every test program. When ORVANE_ISA_DISABLE takes away features this processor has,
// the entry points of the variants that now count as absent are overwritten with UD2, so a test
// that calls them without asking the rule in variants.h dies of an illegal instruction, as it
// would on a processor without those features. Entry points are the global functions of the
// variant objects, all named <name>_<variant>; local code is reached only through them.
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "runtime/cpu_probe.h"
#include "support/variants.h"

namespace {

struct Text {
  std::uintptr_t bias = 0, start = 0, end = 0;
};

int find_text(dl_phdr_info* info, std::size_t, void* data) {
  auto* text = static_cast<Text*>(data);
  text->bias = info->dlpi_addr;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const auto& ph = info->dlpi_phdr[i];
    if (ph.p_type == PT_LOAD && (ph.p_flags & PF_X) != 0) {
      text->start = (info->dlpi_addr + ph.p_vaddr) & ~std::uintptr_t{4095};
      text->end = info->dlpi_addr + ph.p_vaddr + ph.p_memsz;
    }
  }
  return 1;  // the main program comes first; shared libraries dispatch by detection themselves
}

bool ends_with(std::string_view s, const std::string& tail) {
  return s.size() > tail.size() && s.substr(s.size() - tail.size()) == tail;
}

void on_sigill(int) {
  static const char kMsg[] =
      "illegal instruction: code of a variant that ORVANE_ISA_DISABLE took away was called "
      "without asking tests/support/variants.h\n";
  (void)!write(2, kMsg, sizeof kMsg - 1);
  std::signal(SIGILL, SIG_DFL);
  std::raise(SIGILL);
}

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::abort();
}

bool install() {
  const char* disabled = std::getenv("ORVANE_ISA_DISABLE");
  if (disabled == nullptr || *disabled == '\0') return false;
  // The random and statistics copies carry the names of the vector variants of their level.
  std::string suffixes[5];
  int n = 0;
  for (const tvx::test::Variant& v : tvx::test::all_variants())
    if (tvx::test::lacks(v) != nullptr) suffixes[n++] = std::string("_") + v.name;
  // Asking filled the feature word; forget it, so that tests of detection start from nothing.
  tvx_cpu_test_use_probe(nullptr, nullptr, nullptr);
  if (n == 0) return false;

  const int fd = open("/proc/self/exe", O_RDONLY);
  struct stat st {};
  if (fd < 0 || fstat(fd, &st) != 0) fail("isa traps: /proc/self/exe");
  const auto* file = static_cast<const unsigned char*>(
      mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0));
  close(fd);
  if (file == MAP_FAILED) fail("isa traps: mmap");
  const auto* eh = reinterpret_cast<const Elf64_Ehdr*>(file);
  const auto* sh = reinterpret_cast<const Elf64_Shdr*>(file + eh->e_shoff);
  Text text;
  dl_iterate_phdr(find_text, &text);
  if (mprotect(reinterpret_cast<void*>(text.start), text.end - text.start,
               PROT_READ | PROT_WRITE | PROT_EXEC) != 0) {
    fail("isa traps: mprotect of the program text");
  }
  int patched = 0;
  for (int i = 0; i < eh->e_shnum; ++i) {
    if (sh[i].sh_type != SHT_SYMTAB) continue;
    const auto* syms = reinterpret_cast<const Elf64_Sym*>(file + sh[i].sh_offset);
    const char* names = reinterpret_cast<const char*>(file + sh[sh[i].sh_link].sh_offset);
    for (std::size_t k = 0; k < sh[i].sh_size / sizeof(Elf64_Sym); ++k) {
      const Elf64_Sym& s = syms[k];
      if (ELF64_ST_TYPE(s.st_info) != STT_FUNC || ELF64_ST_BIND(s.st_info) != STB_GLOBAL ||
          s.st_shndx == SHN_UNDEF) {
        continue;
      }
      const std::string_view name = names + s.st_name;
      for (int j = 0; j < n; ++j) {
        if (ends_with(name, suffixes[j])) {
          std::memcpy(reinterpret_cast<void*>(text.bias + s.st_value), "\x0f\x0b", 2);
          ++patched;
        }
      }
    }
  }
  mprotect(reinterpret_cast<void*>(text.start), text.end - text.start, PROT_READ | PROT_EXEC);
  munmap(const_cast<unsigned char*>(file), static_cast<std::size_t>(st.st_size));
  std::signal(SIGILL, on_sigill);
  return patched > 0;
}

const bool g_installed = install();

}  // namespace
