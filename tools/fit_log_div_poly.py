#!/usr/bin/env python3
"""Polynomials for the double logarithm without a table (AVX2 variant).

With f = m - 1, m in [sqrt(2)/2, sqrt(2)), s = f / (2 + f) and z = s^2,
    ln m = f - s (f - R(z)),   R(z) = z (c0 + c1 z + ... + c(n-1) z^(n-1)),
the exact R being (2 atanh(s) - 2 s) / s. The fit is a Chebyshev approximation (mpmath.chebyfit)
of R(z) / z on [0, z_max]; the error printed is the largest of |approximation - ln m| / |ln m|
over m, with the coefficients rounded to double.

The LA fit (6 terms) is weighted instead: the error of R(z) reaches the result as s z times the
error of R(z) / z, measured in units of the result's last place, and Lawson's iteration (weighted
least squares, the weights raised where the error is largest) brings the largest of those
weighted errors down to about 1.2 ulps, where a plain Chebyshev fit of 6 terms leaves 4.

Usage: tools/fit_log_div_poly.py          prints the EP fit (3 terms) and the LA fit (6 terms).
"""
import mpmath as mp

mp.mp.prec = 200
SMAX = (mp.sqrt(2) - 1) / (mp.sqrt(2) + 1)
ZMAX = SMAX**2


def r_over_z(z):
    if z < mp.mpf(2) ** -80:
        return mp.mpf(2) / 3
    s = mp.sqrt(z)
    return (2 * mp.atanh(s) - 2 * s) / (s * z)


def fit(name, terms):
    c, _ = mp.chebyfit(r_over_z, [0, ZMAX], terms, error=True)
    c = [float(x) for x in reversed(c)]  # c0 first
    worst = mp.mpf(0)
    for i in range(1, 4001):
        m = mp.sqrt(2) / 2 + (mp.sqrt(2) - mp.sqrt(2) / 2) * i / 4001
        f = m - 1
        if f == 0:
            continue
        s = f / (2 + f)
        z = s * s
        r = z * sum(mp.mpf(ck) * z**k for k, ck in enumerate(c))
        worst = max(worst, abs((f - s * (f - r)) - mp.log(m)) / abs(mp.log(m)))
    print(f"{name}: {terms} terms, relative error 2^{mp.nstr(mp.log(worst, 2), 4)}")
    print("  " + ", ".join(x.hex() for x in c))


def fit_ulps(name, terms, rounds=60):
    pts = []
    for i in range(1, 400):
        m = mp.sqrt(2) / 2 + (mp.sqrt(2) - mp.sqrt(2) / 2) * mp.mpf(i) / 400
        f = m - 1
        if abs(f) < 1e-3:
            continue
        s = f / (2 + f)
        z = s * s
        ulp = mp.mpf(2) ** (mp.floor(mp.log(abs(mp.log(m)), 2)) - 52)
        pts.append((z, r_over_z(z), abs(s) * z / ulp))
    weights = [mp.mpf(1)] * len(pts)
    for _ in range(rounds):
        a = mp.matrix(len(pts), terms)
        b = mp.matrix(len(pts), 1)
        for row, (z, g, scale) in enumerate(pts):
            w = mp.sqrt(weights[row]) * scale
            for k in range(terms):
                a[row, k] = w * z**k
            b[row] = w * g
        c = mp.lu_solve(a.T * a, a.T * b)
        c = [float(c[k]) for k in range(terms)]
        errs = [abs(sum(mp.mpf(ck) * z**k for k, ck in enumerate(c)) - g) * scale
                for z, g, scale in pts]
        worst = max(errs)
        weights = [w * e / worst for w, e in zip(weights, errs)]
        total = sum(weights)
        weights = [w / total for w in weights]
    print(f"{name}: {terms} terms, largest error of the polynomial {mp.nstr(worst, 3)} ulps")
    print("  " + ", ".join(x.hex() for x in c))


fit("EP", 3)
fit_ulps("LA", 6)

