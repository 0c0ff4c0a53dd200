#!/usr/bin/env python3
"""numpy's peer of the uniform exports, run by bench_random: Generator(PCG64).random into a
preallocated array of n doubles, each call timed in processor time of this process, as Google
Benchmark times the other entries.

Usage: bench_random_numpy.py N REPS -- prints REPS lines, the seconds of one call each.
"""
import sys
import time

import numpy as np


def main():
    n, reps = int(sys.argv[1]), int(sys.argv[2])
    generator = np.random.Generator(np.random.PCG64(12345))
    out = np.empty(n)
    generator.random(n, out=out)  # first touch of the array and of the code
    lines = []
    for _ in range(reps):
        start = time.process_time_ns()
        generator.random(n, out=out)
        lines.append(f"{(time.process_time_ns() - start) * 1e-9:.9e}")
    print("\n".join(lines))


if __name__ == "__main__":
    main()
