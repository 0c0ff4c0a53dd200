#!/usr/bin/env python3
"""numpy's peers of the random exports, run by bench_random, each call timed in processor time of
this process, as Google Benchmark times the other entries:

  random  Generator(PCG64).random into a preallocated array of N doubles (the default);
  philox  the Philox bit generator's raw output, N / 2 64-bit words (N 32-bit words' worth) per
          call; random_raw has no output argument, so each call also makes its array;
  mt19937         the MT19937 bit generator's 32-bit words through random_raw, N per call (its
                  raw output is one 32-bit word per 64-bit slot);
  mt19937_random  Generator(MT19937).random into a preallocated array of N doubles;
  normal       Generator(PCG64).standard_normal into a preallocated array of N doubles;
  exponential  Generator(PCG64).standard_exponential into a preallocated array of N doubles.

Usage: bench_random_numpy.py N REPS [random|philox|mt19937|mt19937_random|normal|exponential] -- prints REPS lines, the seconds of one call.
"""
import sys
import time

import numpy as np


def main():
    n, reps = int(sys.argv[1]), int(sys.argv[2])
    mode = sys.argv[3] if len(sys.argv) > 3 else "random"
    if mode == "philox":
        bit_generator = np.random.Philox(12345)

        def call():
            bit_generator.random_raw(n // 2)
    elif mode == "mt19937":
        bit_generator = np.random.MT19937(12345)

        def call():
            bit_generator.random_raw(n)
    elif mode == "mt19937_random":
        generator = np.random.Generator(np.random.MT19937(12345))
        out = np.empty(n)

        def call():
            generator.random(n, out=out)
    elif mode in ("normal", "exponential"):
        generator = np.random.Generator(np.random.PCG64(12345))
        out = np.empty(n)
        draw = generator.standard_normal if mode == "normal" else generator.standard_exponential

        def call():
            draw(n, out=out)
    else:
        generator = np.random.Generator(np.random.PCG64(12345))
        out = np.empty(n)

        def call():
            generator.random(n, out=out)
    call()  # first touch of the arrays and of the code
    lines = []
    for _ in range(reps):
        start = time.process_time_ns()
        call()
        lines.append(f"{(time.process_time_ns() - start) * 1e-9:.9e}")
    print("\n".join(lines))


if __name__ == "__main__":
    main()
