#!/usr/bin/env python3
"""numpy's mean, var, cov and corrcoef on 10 variables x 1e6 observations (double, shape
(10, 1e6), C order), timed like the Google Benchmark cases beside it: median of repeated calls,
reported as ns per element (time / (p * n)). Run with OPENBLAS_NUM_THREADS=1 for one thread."""
import statistics
import time

import numpy as np

P, N = 10, 1_000_000
x = np.random.default_rng(5).normal(size=(P, N)) + 3.0


def median_seconds(fn, reps=15):
    fn()
    times = []
    for _ in range(reps):
        t0 = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t0)
    return statistics.median(times)


cases = [
    ("numpy.mean(x, axis=1)", lambda: np.mean(x, axis=1)),
    ("numpy.var(x, axis=1, ddof=1)", lambda: np.var(x, axis=1, ddof=1)),
    ("numpy.cov(x)", lambda: np.cov(x)),
    ("numpy.corrcoef(x)", lambda: np.corrcoef(x)),
]
print(f"numpy {np.__version__}, shape {x.shape}, median of 15 calls")
for name, fn in cases:
    s = median_seconds(fn)
    print(f"{name:32s} {s * 1e3:9.3f} ms   ns_per_element {s * 1e9 / (P * N):7.3f}")
