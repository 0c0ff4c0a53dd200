// Helpers shared by the frame tests: stdout capture, marker-filled buffers, running a body on a
// thread of its own (fresh mode word, status, callback and element base).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace tvx::test {

// Each thread reads its first mode word from the environment; the frame tests start from the
// default word whatever the calling shell has set.
inline const bool kModeEnvironmentCleared = [] {
  unsetenv("TVX_KAZ_MODE");
  return true;
}();

// Everything `body` writes to standard output.
inline std::string stdout_of(const std::function<void()>& body) {
  testing::internal::CaptureStdout();
  body();
  return testing::internal::GetCapturedStdout();
}

// The line of the parameter reporter, with the empty line before it.
inline std::string parameter_line(int position, const std::string& name) {
  return "\nOrvane Tarvex ERROR: Parameter " + std::to_string(position) +
         " was incorrect on entry to " + name + ".\n";
}

inline constexpr unsigned char kMarkerByte = 0xCA;

template <class T>
std::vector<T> marked(std::size_t n) {
  std::vector<T> v(n);
  std::memset(static_cast<void*>(v.data()), kMarkerByte, n * sizeof(T));
  return v;
}

template <class T>
bool is_marked(const T& value) {
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  for (unsigned char b : bytes) {
    if (b != kMarkerByte) return false;
  }
  return true;
}

template <class T>
bool all_marked(const std::vector<T>& v, std::size_t from = 0) {
  for (std::size_t i = from; i < v.size(); ++i) {
    if (!is_marked(v[i])) return false;
  }
  return true;
}

template <class T>
bool same_bits(T x, T y) {
  return std::memcmp(&x, &y, sizeof(T)) == 0;
}

// Runs `body` on a new thread and waits for it: the per-thread block starts out fresh.
inline void on_fresh_thread(const std::function<void()>& body) {
  std::thread t(body);
  t.join();
}

}  // namespace tvx::test
