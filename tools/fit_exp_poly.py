#!/usr/bin/env python3
"""Near-minimax polynomials for the exponential kernels whose coefficients are not fixed elsewhere.

Usage: tools/fit_exp_poly.py
For each fit prints the coefficients c1..cd (as C hex floats, double or single) of
    exp(r) - 1 ~= c1*r + c2*r^2 + ... + cd*r^d   on [a, b]
together with the largest error of the rounded polynomial relative to exp(r), sampled densely.
The fit is a Chebyshev approximation (mpmath.chebyfit) of (exp(r) - 1) / r, which is within a
small factor of the true minimax polynomial on these short intervals. The constant term stays 0
so that T + T*p is exact at r = 0.
"""
import struct

import mpmath as mp

mp.mp.prec = 200


def to_double(v):
    return float(v)


def to_single(v):
    return struct.unpack("<f", struct.pack("<f", float(v)))[0]


def hexf(v, single):
    s = float(v).hex()
    return s + ("f" if single else "")


def fit(name, a, b, degree, single=False):
    def h(r):
        if abs(r) < mp.mpf(2) ** -60:
            return 1 + r / 2
        return (mp.exp(r) - 1) / r

    coeffs, _ = mp.chebyfit(h, [a, b], degree, error=True)
    coeffs = list(reversed(coeffs))  # c1 first
    rnd = to_single if single else to_double
    c = [rnd(x) for x in coeffs]
    worst = mp.mpf(0)
    for i in range(2001):
        r = mp.mpf(a) + (mp.mpf(b) - a) * i / 2000
        p = r * sum(mp.mpf(ck) * r**k for k, ck in enumerate(c))
        e = abs((1 + p) - mp.exp(r)) / mp.exp(r)
        worst = max(worst, e)
    print(f"{name}: [{mp.nstr(a, 8)}, {mp.nstr(b, 8)}] degree {degree}, "
          f"relative error 2^{mp.nstr(mp.log(worst, 2), 4)}")
    print("  " + ", ".join(hexf(x, single) for x in c))


ln2 = mp.log(2)
fit("double, 16-entry table, HA", 0, ln2 / 16, 6)
fit("double, 16-entry table, EP", 0, ln2 / 16, 3)
fit("single, 32-entry table, HA", 0, ln2 / 32, 4, single=True)
fit("single, 32-entry table, LA", 0, ln2 / 32, 3, single=True)
fit("single, 32-entry table, EP", 0, ln2 / 32, 2, single=True)
