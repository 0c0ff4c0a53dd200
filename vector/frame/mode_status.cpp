// Per-thread mode word, status word and callback, their exports, and the report path of one bad
// element (status, errno, printed lines, x87 flag, callback).
#include "vector/frame/mode_status.h"

#include <cerrno>
#include <cstring>

#include "runtime/cpu_type.h"
#include "runtime/report.h"

namespace {

// The thread's block. thread_local storage is zero-initialised and needs no release at thread
// exit, so the block is ready on any thread at the cost of one TLS read.
thread_local kaz_thread_block t_block{};

volatile std::int32_t g_mode_env_lock = 0;

struct ModeName {
  const char* name;
  int length;
  std::uint32_t value;
};

// Keywords of TVX_KAZ_MODE (after the "KAZ_" prefix), tried in this order; the first prefix
// match wins. "DOUBLE_CONSISTEN" is cut to sixteen characters on purpose.
constexpr ModeName kModeNames[18] = {
    {"LA", 2, 0x1},
    {"HA", 2, 0x2},
    {"EP", 2, 0x3},
    {"DEFAULT_PRECISION", 17, 0x0},
    {"FLOAT_CONSISTENT", 16, 0x10},
    {"DOUBLE_CONSISTEN", 16, 0x20},
    {"RESTORE", 7, 0x30},
    {"ERRMODE_IGNORE", 14, 0x100},
    {"ERRMODE_ERRNO", 13, 0x200},
    {"ERRMODE_STDERR", 14, 0x400},
    {"ERRMODE_EXCEPT", 14, 0x800},
    {"ERRMODE_CALLBACK", 16, 0x1000},
    {"ERRMODE_NOERR", 13, 0x2000},
    {"ERRMODE_DEFAULT", 15, 0x1A00},
    {"TRAP_INVALID", 12, 0x1000000},
    {"TRAP_DIVBYZERO", 14, 0x2000000},
    {"TRAP_OVERFLOW", 13, 0x4000000},
    {"TRAP_UNDERFLOW", 14, 0x8000000},
};

constexpr std::uint32_t kMergedFields[5] = {KAZ_ACCURACY_MASK, KAZ_ERRMODE_MASK, KAZ_FTZDAZ_MASK,
                                            KAZ_TRAP_MASK, KAZ_SPARE_MASK};

int errno_of(int code) {
  switch (code) {
    case 0:
      return 0;
    case KAZ_STATUS_BADSIZE:
      return 22;
    case KAZ_STATUS_BADMEM:
      return 13;
    case KAZ_STATUS_ERRDOM:
      return 33;
    case KAZ_STATUS_SING:
    case KAZ_STATUS_OVERFLOW:
    case KAZ_STATUS_UNDERFLOW:
      return 34;
    default:
      return 14;
  }
}

int status_message(int code) {
  switch (code) {
    case KAZ_STATUS_BADSIZE:
      return 748;
    case KAZ_STATUS_BADMEM:
      return 749;
    case KAZ_STATUS_ERRDOM:
      return 750;
    case KAZ_STATUS_SING:
      return 751;
    case KAZ_STATUS_OVERFLOW:
      return 752;
    case KAZ_STATUS_UNDERFLOW:
      return 753;
    default:
      return 754;
  }
}

// x87 environment as stored by fnstenv in 32-bit protected-mode layout.
struct X87Env {
  std::uint16_t control, r0, status, r1, tag, r2;
  std::uint32_t ip;
  std::uint16_t cs, opcode;
  std::uint32_t dp;
  std::uint16_t ds, r3;
};
static_assert(sizeof(X87Env) == 28);

// Raises the x87 flag of `code`, trapping first if the mode word unmasks that exception, and
// leaves the x87 unit with all exceptions masked and the flag set for the application to read.
void raise_x87(int code) {
  const std::uint32_t mode = kazGetMode();
  std::uint16_t unmask = 0;
  if (mode & KAZ_TRAP_INVALID) unmask |= 0x01;
  if (mode & KAZ_TRAP_DIVBYZERO) unmask |= 0x04;
  if (mode & KAZ_TRAP_OVERFLOW) unmask |= 0x08;
  if (mode & KAZ_TRAP_UNDERFLOW) unmask |= 0x10;
  std::uint16_t flag = 0;
  switch (code) {
    case KAZ_STATUS_ERRDOM:
      flag = 0x01;
      break;
    case KAZ_STATUS_SING:
      flag = 0x04;
      break;
    case KAZ_STATUS_OVERFLOW:
      flag = 0x08;
      break;
    case KAZ_STATUS_UNDERFLOW:
      flag = 0x10;
      break;
    default:
      break;
  }
  X87Env saved;
  asm volatile("fnstenv %0" : "=m"(saved));
  X87Env copy = saved;
  copy.control = static_cast<std::uint16_t>(copy.control & ~unmask);
  copy.status = static_cast<std::uint16_t>((copy.status & ~0x3F) | flag);
  if ((flag & unmask) != 0) copy.status |= 0x80;  // error summary: the pending trap fires at fwait
  asm volatile("fldenv %0\n\tfwait" : : "m"(copy));
  saved.control |= 0x3F;
  saved.status = static_cast<std::uint16_t>((saved.status | flag) & ~0x80);
  asm volatile("fldenv %0" : : "m"(saved));
}

void print_value(int message, int index, double v) {
  tvx_print_message(0, message, 2, index, v);
}

void default_action(const kaz_error_record& rec, std::uint32_t mode) {
  if (mode & KAZ_ERRMODE_ERRNO) errno = errno_of(rec.code);
  // Code 0 is not a condition: it has no line and no values.
  if ((mode & KAZ_ERRMODE_STDERR) != 0 && rec.code != 0) {
    const int msg = status_message(rec.code);
    if (rec.code == KAZ_STATUS_BADSIZE) {
      tvx_print_message(0, msg, 2, rec.name, rec.index);
    } else {
      tvx_print_message(0, msg, 1, rec.name);
    }
    if (rec.code != KAZ_STATUS_BADSIZE && rec.code != KAZ_STATUS_BADMEM) {
      std::uint64_t a1b, a2b, r1b, r2b;
      std::memcpy(&a1b, &rec.a1, 8);
      std::memcpy(&a2b, &rec.a2, 8);
      std::memcpy(&r1b, &rec.r1, 8);
      std::memcpy(&r2b, &rec.r2, 8);
      const bool two_in = a1b != a2b && rec.a2 != 0.0;
      const bool two_out = r1b != r2b && rec.r2 != 0.0;
      print_value(755, rec.index, rec.a1);
      if (two_in) print_value(756, rec.index, rec.a2);
      if (!two_in && !two_out) {
        print_value(757, rec.index, rec.r1);
      } else {
        print_value(758, rec.index, rec.r1);
        if (two_out) print_value(759, rec.index, rec.r2);
      }
    }
  }
  if (mode & KAZ_ERRMODE_EXCEPT) raise_x87(rec.code);
}

// Element access for the report path: real and complex element types widened to double.
inline void widen(float v, double* re, double*) {
  *re = v;
}
inline void widen(double v, double* re, double*) {
  *re = v;
}
inline void widen(const TvxComplex8& v, double* re, double* im) {
  *re = v.real;
  *im = v.imag;
}
inline void widen(const TvxComplex16& v, double* re, double* im) {
  *re = v.real;
  *im = v.imag;
}
inline void narrow(float* d, double re, double) {
  *d = static_cast<float>(re);
}
inline void narrow(double* d, double re, double) {
  *d = re;
}
inline void narrow(TvxComplex8* d, double re, double im) {
  d->real = static_cast<float>(re);
  d->imag = static_cast<float>(im);
}
inline void narrow(TvxComplex16* d, double re, double im) {
  d->real = re;
  d->imag = im;
}

template <class T>
void report(int code, int i, const T* a1, long inca1, const T* a2, long inca2, T* r1, long incr1,
            T* r2, long incr2, const char* name) {
  kaz_thread_block* tb = &t_block;
  const std::uint32_t mode = kazGetMode();
  const std::uint32_t err = mode & KAZ_ERRMODE_MASK;
  if (err == KAZ_ERRMODE_NOERR) return;
  tb->status = code;
  if (err == KAZ_ERRMODE_IGNORE) return;

  kaz_error_record rec{};
  rec.code = code;
  rec.index = i;
  if (tb->element_base != nullptr && a1 != nullptr) {
    const auto distance =
        reinterpret_cast<const char*>(a1) - static_cast<const char*>(tb->element_base);
    rec.index = static_cast<int>(i + distance / static_cast<long>(sizeof(T)));
  }
  int len = 0;
  if (name != nullptr) {
    while (len < 47 && name[len] != '\0') {
      rec.name[len] = name[len];
      ++len;
    }
  }
  rec.name[len] = '\0';
  rec.name_len = len;

  const bool values = code != KAZ_STATUS_BADSIZE && code != KAZ_STATUS_BADMEM;
  const long ia1 = static_cast<long>(i) * inca1, ia2 = static_cast<long>(i) * inca2;
  const long ir1 = static_cast<long>(i) * incr1, ir2 = static_cast<long>(i) * incr2;
  if (values) {
    if (a1 != nullptr) widen(a1[ia1], &rec.a1, &rec.a1_im);
    if (a2 != nullptr) widen(a2[ia2], &rec.a2, &rec.a2_im);
    if (r1 != nullptr) widen(r1[ir1], &rec.r1, &rec.r1_im);
    if (r2 != nullptr) widen(r2[ir2], &rec.r2, &rec.r2_im);
  }
  if ((mode & KAZ_ERRMODE_CALLBACK) != 0 && tb->callback != nullptr) {
    if (tb->callback(&rec) != 0) return;
  }
  if ((mode & 0x2F00u) != 0) default_action(rec, mode);
  if (values) {
    if (r2 != nullptr) narrow(&r2[ir2], rec.r2, rec.r2_im);
    if (r1 != nullptr) narrow(&r1[ir1], rec.r1, rec.r1_im);
  }
}

}  // namespace

extern "C" {

kaz_thread_block* tvx_kaz_thread_block(void) {
  return &t_block;
}

std::int64_t tvx_kaz_mode_parse(const char* text) {
  constexpr int kBuffer = 256;
  if (text == nullptr) return -1;
  const std::size_t total = std::strlen(text);
  if (total == 0 || total >= kBuffer || text[0] != 'K') return -1;
  std::int64_t result = 0;
  std::size_t pos = 0;
  for (;;) {
    if (std::strncmp(text + pos, "KAZ_", 4) != 0) return -1;
    pos += 4;
    const ModeName* hit = nullptr;
    for (const ModeName& m : kModeNames) {
      if (pos + static_cast<std::size_t>(m.length) < kBuffer &&
          std::strncmp(text + pos, m.name, static_cast<std::size_t>(m.length)) == 0) {
        hit = &m;
        break;
      }
    }
    if (hit == nullptr) return -1;
    pos += static_cast<std::size_t>(hit->length);
    result |= hit->value;
    if (text[pos] == '\0') return result;
    if (text[pos] != ',') return -1;
    ++pos;
    if (text[pos] != 'K') return -1;
  }
}

std::int64_t tvx_kaz_mode_from_env(void) {
  // The variable's name is assembled from pieces, as every environment name of this library is.
  char name[16];
  std::memcpy(name, "TVX_", 4);
  std::memcpy(name + 4, "KAZ_MODE", 9);
  char value[256];
  if (tvx_getenv(name, value, sizeof value) <= 0) return -1;
  return tvx_kaz_mode_parse(value);
}

unsigned int kazGetMode(void) {
  kaz_thread_block* tb = &t_block;
  if (tb->mode != 0) return tb->mode;
  tvx_lock(&g_mode_env_lock);
  const std::int64_t r = tvx_kaz_mode_from_env();
  tvx_unlock(&g_mode_env_lock);
  std::uint32_t word;
  if (r == -1) {
    word = KAZ_DEFAULT_MODE;
  } else {
    word = static_cast<std::uint32_t>(r);
    if ((word & KAZ_ACCURACY_MASK) == 0) word |= KAZ_HA;
    if ((word & KAZ_ERRMODE_MASK) == 0) word |= KAZ_ERRMODE_DEFAULT;
  }
  tb->mode = word;
  return word;
}
unsigned int kazgetmode(void) {
  return kazGetMode();
}

unsigned int kazSetMode(unsigned int mode) {
  const std::uint32_t old = kazGetMode();
  std::uint32_t word = old;
  for (std::uint32_t mask : kMergedFields) {
    if ((mode & mask) != 0) word = (word & ~mask) | (mode & mask);
  }
  t_block.mode = word;
  return old;
}
unsigned int kazsetmode(const unsigned int* mode) {
  return kazSetMode(*mode);
}

int kazSetErrStatus(int status) {
  const int old = t_block.status;
  t_block.status = status;
  return old;
}
int kazseterrstatus(const int* status) {
  return kazSetErrStatus(*status);
}
int kazGetErrStatus(void) {
  return t_block.status;
}
int kazgeterrstatus(void) {
  return kazGetErrStatus();
}
int kazClearErrStatus(void) {
  return kazSetErrStatus(0);
}
int kazclearerrstatus(void) {
  return kazClearErrStatus();
}

KazErrorCallBack kazSetErrorCallBack(KazErrorCallBack callback) {
  kaz_thread_block* tb = &t_block;
  const KazErrorCallBack old = tb->callback;
  tb->callback = callback;
  std::uint32_t word = kazGetMode() & ~KAZ_ERRMODE_CALLBACK;
  if (callback != nullptr) word |= KAZ_ERRMODE_CALLBACK;
  kazSetMode(word);
  return old;
}
KazErrorCallBack kazseterrorcallback(KazErrorCallBack callback) {
  return kazSetErrorCallBack(callback);
}
KazErrorCallBack kazGetErrorCallBack(void) {
  return t_block.callback;
}
KazErrorCallBack kazgeterrorcallback(void) {
  return kazGetErrorCallBack();
}
KazErrorCallBack kazClearErrorCallBack(void) {
  return kazSetErrorCallBack(nullptr);
}
KazErrorCallBack kazclearerrorcallback(void) {
  return kazClearErrorCallBack();
}

int tvx_kaz_table_slot(int variant_index) {
  return variant_index + static_cast<int>(kazGetMode() & KAZ_ACCURACY_MASK) * 6 - 6;
}

const void* kaz_get_element_base(void) {
  return t_block.element_base;
}
void kaz_set_element_base(const void* base) {
  t_block.element_base = base;
}

void kaz_report_s(int code, int i, const float* a1, const float* a2, float* r1, float* r2,
                  const char* name) {
  report<float>(code, i, a1, 1, a2, 1, r1, 1, r2, 1, name);
}
void kaz_report_d(int code, int i, const double* a1, const double* a2, double* r1, double* r2,
                  const char* name) {
  report<double>(code, i, a1, 1, a2, 1, r1, 1, r2, 1, name);
}
void kaz_report_c(int code, int i, const TvxComplex8* a1, const TvxComplex8* a2, TvxComplex8* r1,
                  TvxComplex8* r2, const char* name) {
  report<TvxComplex8>(code, i, a1, 1, a2, 1, r1, 1, r2, 1, name);
}
void kaz_report_z(int code, int i, const TvxComplex16* a1, const TvxComplex16* a2, TvxComplex16* r1,
                  TvxComplex16* r2, const char* name) {
  report<TvxComplex16>(code, i, a1, 1, a2, 1, r1, 1, r2, 1, name);
}
void kaz_report_si(int code, int i, const float* a1, int inca1, const float* a2, int inca2,
                   float* r1, int incr1, float* r2, int incr2, const char* name) {
  report<float>(code, i, a1, inca1, a2, inca2, r1, incr1, r2, incr2, name);
}
void kaz_report_di(int code, int i, const double* a1, int inca1, const double* a2, int inca2,
                   double* r1, int incr1, double* r2, int incr2, const char* name) {
  report<double>(code, i, a1, inca1, a2, inca2, r1, incr1, r2, incr2, name);
}

}  // extern "C"
