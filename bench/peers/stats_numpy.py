#!/usr/bin/env python3
"""numpy's mean, var, cov, corrcoef, quantile (linear, 5 orders) and sort on 10 variables x 1e6 observations (double, shape
(10, 1e6), C order), timed like the Google Benchmark cases beside it: medians of repeated calls, wall
and process CPU time, reported as ns per element (time / (p * n)). Run with OPENBLAS_NUM_THREADS=1 for one thread."""
import statistics
import time

import numpy as np

P, N = 10, 1_000_000
x = np.random.default_rng(5).normal(size=(P, N)) + 3.0


def median_seconds(fn, reps=15):
    """Medians of wall time and of process CPU time per call."""
    fn()
    wall, cpu = [], []
    for _ in range(reps):
        t0, c0 = time.perf_counter(), time.process_time()
        fn()
        wall.append(time.perf_counter() - t0)
        cpu.append(time.process_time() - c0)
    return statistics.median(wall), statistics.median(cpu)


cases = [
    ("numpy.mean(x, axis=1)", lambda: np.mean(x, axis=1)),
    ("numpy.var(x, axis=1, ddof=1)", lambda: np.var(x, axis=1, ddof=1)),
    ("numpy.cov(x)", lambda: np.cov(x)),
    ("numpy.corrcoef(x)", lambda: np.corrcoef(x)),
    ("numpy.quantile(x, 5 q, axis=1)",
     lambda: np.quantile(x, [0.05, 0.25, 0.5, 0.75, 0.95], axis=1, method="linear")),
    ("numpy.sort(x, axis=1)", lambda: np.sort(x, axis=1)),
]
print(f"numpy {np.__version__}, shape {x.shape}, median of 15 calls")
for name, fn in cases:
    wall, cpu = median_seconds(fn)
    print(f"{name:30s} wall {wall * 1e3:8.3f} ms  cpu {cpu * 1e3:8.3f} ms  "
          f"ns_per_element wall {wall * 1e9 / (P * N):6.3f} cpu {cpu * 1e9 / (P * N):6.3f}")
