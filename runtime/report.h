// Messages, parameter-error reporting, exit hook, spin locks, environment reads, bounded
// string helpers and the library's start and stop.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

// ---- Messages --------------------------------------------------------------------------------
// Message numbers of the shared table. The text of each is fixed; see report.cpp.
enum : int {
  TVX_MSG_NEWLINE = 0,
  TVX_MSG_PARAM_INCORRECT = 6,
  TVX_MSG_INTERNAL_CONDITION = 7,
  TVX_MSG_INSUFFICIENT_WORKSPACE = 8,
  TVX_MSG_INCOMPATIBLE_OPTIONAL = 9,
  TVX_MSG_STATUS_FIRST = 748,  // 748..754: status lines of the vector error report
  TVX_MSG_VALUE_FIRST = 755,   // 755..766: value lines of the vector error report
  TVX_MSG_MEMORY_FATAL = 773,
  TVX_MSG_NOT_ENOUGH_WORK_MEMORY = 1102,
  TVX_MSG_CBWR_WARNING = 1222,
  TVX_MSG_CPU_FATAL_1 = 1223,
  TVX_MSG_COPROCESSOR = 1225,
  TVX_MSG_CPU_FATAL_2 = 1450,
  TVX_MSG_AVX_DEPRECATED = 1453,
  TVX_MSG_SSSE3_DEPRECATED = 1454,
  TVX_MSG_TABLE_SIZE = 1458,
};

// Formats message `number` with `argc` arguments (ints, doubles or strings as its format asks)
// into the shared 512-byte buffer, writes it and a newline to standard output and flushes.
// `stream_flag` is accepted for compatibility and does not change the output.
void tvx_print_message(int stream_flag, int number, int argc, ...);
// The format string of a message, or null for a number without text.
const char* tvx_message_text(int number);

// ---- Parameter error reporter ----------------------------------------------------------------
typedef int (*tvx_param_error_fn)(const char* name, const std::int64_t* info, int length);
int tvx_param_error_default(const char* name, const std::int64_t* info, int length);
void tvx_param_error_install_default(tvx_param_error_fn fn);
tvx_param_error_fn tvx_param_error_set(tvx_param_error_fn fn);
void tvx_param_error_report(const char* name, const std::int64_t* info, int length);
int tvx_null_pointer_report(const void* pointer, const char* name);

// ---- Exit hook --------------------------------------------------------------------------------
typedef void (*tvx_exit_fn)(int code);
[[noreturn]] void tvx_exit(int code);
void tvx_set_exit_hook(tvx_exit_fn fn);

// ---- Spin locks -------------------------------------------------------------------------------
void tvx_lock(volatile std::int32_t* word);
void tvx_unlock(volatile std::int32_t* word);

// ---- Environment -------------------------------------------------------------------------------
// Copies variable `name` into `buffer` of `size` bytes. Returns its length (> 0); 0 when unset or
// empty; minus the needed length when it does not fit (the value and its terminator must fit).
// The buffer is emptied in the last two cases.
int tvx_getenv(const char* name, char* buffer, int size);

// ---- Bounded string helpers --------------------------------------------------------------------
// Strings longer than TVX_STRING_MAX are refused. Faults go to the constraint handler with a
// text and a code (the default handler ignores them); a faulting copy empties its destination.
enum : int { TVX_STRING_MAX = 4096 };
typedef void (*tvx_constraint_handler_fn)(const char* text, int code);
tvx_constraint_handler_fn tvx_set_constraint_handler(tvx_constraint_handler_fn fn);
std::size_t tvx_strnlen_s(const char* s, std::size_t dmax);
int tvx_strncpy_s(char* dest, std::size_t dmax, const char* src, std::size_t slen);
int tvx_strncat_s(char* dest, std::size_t dmax, const char* src, std::size_t slen);
int tvx_memcpy_s(void* dest, std::size_t dmax, const void* src, std::size_t smax);
int tvx_memmove_s(void* dest, std::size_t dmax, const void* src, std::size_t smax);

// ---- Start and stop ---------------------------------------------------------------------------
typedef void (*tvx_stop_fn)(void* context);
// Adds a handler run once at library stop, last registered first. Up to 8 handlers; a full list
// ends the process with code 3.
void tvx_register_at_stop(tvx_stop_fn fn, void* context);
// A second, larger list (32 entries) run after the first, for late clean-up of subsystems.
void tvx_register_at_stop_late(tvx_stop_fn fn, void* context);
// Runs the stop steps once; later calls do nothing. Called by the library destructor.
void tvx_library_stop(void);
// Nonzero once tvx_library_stop has begun.
int tvx_library_stopping(void);
// Called on thread exit for the library's per-thread resources, in registration order.
typedef void (*tvx_thread_exit_fn)(void);
void tvx_register_thread_exit(tvx_thread_exit_fn fn);
// Makes sure the calling thread runs the registered thread-exit functions when it ends. Any code
// that creates per-thread resources calls it once on that thread.
void tvx_thread_touch(void);

}  // extern "C"
