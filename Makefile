# Entry points: `make demo` (set up, build, run the examples) and `make test` (everything CI runs).
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
JOBS       ?= $(shell nproc)
PREFIX     ?= /usr/local
CMAKE_GEN  := -G Ninja
# Let a fresh clone in another directory reuse the compiler cache: paths are hashed relative to
# the checkout, and the working directory is left out of the hash.
export CCACHE_BASEDIR := $(CURDIR)
export CCACHE_NOHASHDIR := 1
CTEST      := ctest --output-on-failure -j $(JOBS) --timeout 900
SAN_FLAGS  := -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS=-O1 -DCMAKE_CXX_FLAGS=-O1 \
              -DTVX_BUILD_EXAMPLES=OFF

.PHONY: all deps build demo install package test test-release test-variants test-asan test-tsan bench \
        accuracy clean format

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DTVX_BUILD_BENCH=ON

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

# Runs every example program, then says what ran and where to read on.
demo: build
	$(BUILD)/tools/tvx-info
	@ran=""; for e in $(BUILD)/examples/example_*; do \
	  [ -x "$$e" ] || continue; echo; $$e || { echo "make demo: $${e##*/} FAILED"; exit 1; }; \
	  ran="$${ran:+$$ran, }$${e##*/example_}"; done; \
	echo; echo "Tarvex demo summary"; \
	echo "  variant in use: $$($(BUILD)/tools/tvx-info --variant)"; \
	echo "  ran           : tvx-info, then the examples $$ran; each checked its results: all OK"; \
	echo "  ERROR lines   : from deliberate bad calls, each announced the line before"; \
	echo "  read on       : README.md (use from C, install, package), docs/accuracy.md,"; \
	echo "                  docs/performance.md; example sources in examples/"

# `make install PREFIX=$HOME/.local`: library, headers, CMake and pkg-config files, tvx-info and
# documentation under PREFIX (DESTDIR is honoured for staged installs).
install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

# Debian package of the built library, written to $(BUILD).
package: build
	cd $(BUILD) && cpack -G DEB

test: test-release test-variants test-asan test-tsan
	@echo "make test: all suites passed"

test-release: build
	cd $(BUILD) && $(CTEST) -LE slow

# The tests that call variant code directly, again as on machines without AVX-512 and without
# AVX2: the library then reports those features absent, the tests must skip what needs them, and
# the test programs make the code of those variants fault (tests/support/isa_traps.cpp).
test-variants: build
	cd $(BUILD) && ORVANE_ISA_DISABLE=avx512f $(CTEST) -L variants -LE slow
	cd $(BUILD) && ORVANE_ISA_DISABLE=avx512f,avx2 $(CTEST) -L variants -LE slow

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) $(SAN_FLAGS) "-DTVX_SANITIZE=address;undefined"
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  $(CTEST) -LE 'slow|nosan'

test-tsan: deps
	cmake -S . -B $(TSAN_BUILD) $(CMAKE_GEN) $(SAN_FLAGS) -DTVX_SANITIZE=thread
	cmake --build $(TSAN_BUILD) -j $(JOBS) --target thread_tests
	cd $(TSAN_BUILD) && TSAN_OPTIONS="suppressions=$(CURDIR)/tests/tsan.supp halt_on_error=1" \
	  $(CTEST) -L threads

bench: build
	for b in $(BUILD)/bench/bench_*; do env -u OPENBLAS_CORETYPE $$b; done

accuracy: build
	cd $(BUILD) && $(CTEST) -L accuracy-full

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD)

format:
	find include runtime simd vector random stats tests tools bench examples \
	  \( -name '*.h' -o -name '*.cpp' -o -name '*.c' \) | xargs clang-format -i
