#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need.
# Idempotent: asks apt only for what is missing, and does nothing when all is present.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config
  libxsimd-dev libopenblas-dev libopenblas-openmp-dev liblapacke-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libmpfr-dev libgmp-dev
  libsleef-dev libgsl-dev libhwy-dev python3-numpy
  librandom123-dev librandom123-doc
  binutils dpkg-dev
  clang libclang-rt-14-dev libomp-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
