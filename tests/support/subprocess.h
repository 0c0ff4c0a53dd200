// Runs a piece of test code in a fresh child process with a chosen environment, and collects its
// exit code and standard output. Settings that the library reads once per process (CPU type,
// reproducibility, verbose level) are tested this way.
#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace tvx::test {

struct ChildResult {
  int exit_code = -1;  // exit status, or 128 + signal number
  std::string out;
};

// Variables to set in the child; a null value unsets the variable.
using Env = std::vector<std::pair<std::string, const char*>>;

// The body's int result is the child's exit code.
inline ChildResult run_in_child(const Env& env, const std::function<int()>& body) {
  int fds[2];
  if (pipe(fds) != 0) return {};
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    dup2(fds[1], 1);
    close(fds[1]);
    for (const auto& [name, value] : env) {
      if (value == nullptr) {
        unsetenv(name.c_str());
      } else {
        setenv(name.c_str(), value, 1);
      }
    }
    int code = body();
    std::fflush(nullptr);
    _exit(code);
  }
  close(fds[1]);
  ChildResult result;
  char buf[4096];
  ssize_t got;
  while ((got = read(fds[0], buf, sizeof buf)) > 0)
    result.out.append(buf, static_cast<size_t>(got));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) {
    result.exit_code = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.exit_code = 128 + WTERMSIG(status);
  }
  return result;
}

// Success when the child ends with 0; otherwise its exit code and what it printed.
inline ::testing::AssertionResult child_ok(const Env& env, const std::function<int()>& body) {
  const ChildResult r = run_in_child(env, body);
  if (r.exit_code == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "child ended with " << r.exit_code << ": " << r.out;
}

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace tvx::test

// In a child's body: prints the failed condition and ends the child with 1.
#define TVX_CHILD_CHECK(cond)                                        \
  do {                                                               \
    if (!(cond)) {                                                   \
      std::printf("failed check at line %d: %s\n", __LINE__, #cond); \
      return 1;                                                      \
    }                                                                \
  } while (0)
