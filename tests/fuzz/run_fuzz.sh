#!/usr/bin/env bash
# Builds the stream-image fuzz target with clang in its own configuration and runs it for a
# bounded time on the checked-in images (seeds and regression inputs), writing new inputs to a
# work corpus in the build tree. Exit 77 (a skip for CTest) when clang or libFuzzer is missing.
# An input that crashes becomes a regression input: copy the crash-* file the run names into
# tests/data/images/ (as regression-<what>.img); every run starts from all the files there.
# Usage: run_fuzz.sh <build dir> [seconds]
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
build="$1"
seconds="${2:-30}"
if ! command -v clang++ >/dev/null 2>&1; then
  echo "fuzz_load_stream skipped: clang++ not found (scripts/install-deps.sh installs clang)"
  exit 77
fi
probe="$(mktemp -d)"
trap 'rm -rf "$probe"' EXIT
printf '#include <cstdint>\n#include <cstddef>\nextern "C" int LLVMFuzzerTestOneInput(const uint8_t*, size_t) { return 0; }\n' \
  > "$probe/p.cpp"
if ! clang++ -fsanitize=fuzzer "$probe/p.cpp" -o "$probe/p" >/dev/null 2>&1; then
  echo "fuzz_load_stream skipped: clang++ has no libFuzzer (package libclang-rt-14-dev)"
  exit 77
fi
launcher=()
if command -v ccache >/dev/null 2>&1; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
  "${launcher[@]}" >/dev/null
cmake --build "$build" -j "$(nproc)" >/dev/null
mkdir -p "$build/corpus"
cd "$build"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ./fuzz_load_stream -max_total_time="$seconds" -runs=2000000 -max_len=4096 -timeout=10 \
  -rss_limit_mb=2048 -print_final_stats=1 "$build/corpus" "$root/tests/data/images"
