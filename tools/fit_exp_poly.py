#!/usr/bin/env python3
"""Near-minimax polynomials for the exponential kernels whose coefficients are not fixed elsewhere.

Usage: tools/fit_exp_poly.py
For each fit prints the coefficients c1..cd (as C hex floats, double or single) of
    exp(r) - 1 ~= c1*r + c2*r^2 + ... + cd*r^d   on [a, b]
together with the largest error of the rounded polynomial relative to exp(r), sampled densely.
The fit is a Chebyshev approximation (mpmath.chebyfit) of (exp(r) - 1) / r, which is within a
small factor of the true minimax polynomial on these short intervals. The constant term stays 0
so that T + T*p is exact at r = 0.

The single-precision designs without a table need more care: on [-ln2/2, ln2/2] the rounding of
the coefficients to single costs as much as the fit itself. fit_single_notable minimises the
largest relative error of 1 + c1*r + ... + cd*r^d directly (Lawson's reweighted least squares on
a Chebyshev grid), then rounds c1 to single, refits the rest with c1 fixed, and so on, so that
each later coefficient absorbs the rounding of the earlier ones.
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


def minimax_rel(a, b, fixed, free, points=200, rounds=100):
    """Free coefficients (by power) minimising max |p(r) - exp(r)| / exp(r) on [a, b]."""
    grid = [(a + b) / 2 + (b - a) / 2 * mp.cos(mp.pi * (i + mp.mpf(1) / 2) / points)
            for i in range(points)] + [mp.mpf(a), mp.mpf(b)]
    rows, rhs = [], []
    for r in grid:
        e = mp.exp(r)
        rows.append([r**k / e for k in free])
        rhs.append(1 - sum(c * r**k for k, c in fixed.items()) / e)
    m = len(free)
    weights = [mp.mpf(1) / len(grid)] * len(grid)
    best = None
    for _ in range(rounds):
        lhs = mp.matrix(m, m)
        vec = mp.matrix(m, 1)
        for w, row, y in zip(weights, rows, rhs):
            for i in range(m):
                vec[i] += w * row[i] * y
                for j in range(m):
                    lhs[i, j] += w * row[i] * row[j]
        sol = mp.lu_solve(lhs, vec)
        res = [abs(sum(sol[i] * row[i] for i in range(m)) - y) for row, y in zip(rows, rhs)]
        worst = max(res)
        if best is None or worst < best[0]:
            best = (worst, [sol[i] for i in range(m)])
        total = sum(w * e for w, e in zip(weights, res))
        weights = [w * e / total for w, e in zip(weights, res)]
    return best[1]


def fit_single_notable(name, degree):
    a, b = -mp.log(2) / 2, mp.log(2) / 2
    fixed = {0: mp.mpf(1)}
    free = list(range(1, degree + 1))
    while free:
        coeffs = minimax_rel(a, b, fixed, free)
        fixed[free[0]] = mp.mpf(to_single(coeffs[0]))
        free = free[1:]
    c = [fixed[k] for k in range(degree + 1)]
    worst = mp.mpf(0)
    for i in range(4001):
        r = a + (b - a) * i / 4000
        p = sum(ck * r**k for k, ck in enumerate(c))
        worst = max(worst, abs(p - mp.exp(r)) / mp.exp(r))
    print(f"{name}: [{mp.nstr(a, 8)}, {mp.nstr(b, 8)}] degree {degree}, "
          f"relative error 2^{mp.nstr(mp.log(worst, 2), 4)}")
    print("  " + ", ".join(hexf(x, True) for x in c))


ln2 = mp.log(2)
fit("double, 16-entry table, HA", 0, ln2 / 16, 6)
fit("double, 16-entry table, EP", 0, ln2 / 16, 3)
fit("single, 32-entry table, HA", 0, ln2 / 32, 3, single=True)
mp.mp.prec = 100
fit_single_notable("single, no table, HA", 6)
fit_single_notable("single, no table, LA", 5)
fit_single_notable("single, no table, EP", 3)
# AVX2 double: 4-entry register table, r on [-ln2/8, ln2/8].
mp.mp.prec = 200
fit("double, 4-entry table, HA", -ln2 / 8, ln2 / 8, 8)
fit("double, 4-entry table, EP", -ln2 / 8, ln2 / 8, 4)
