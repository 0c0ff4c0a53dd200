#!/usr/bin/env python3
"""Polynomials for the double logarithm without a table (AVX2 variant).

With f = m - 1, m in [sqrt(2)/2, sqrt(2)), s = f / (2 + f) and z = s^2,
    ln m = f - s (f - R(z)),   R(z) = z (c0 + c1 z + ... + c(n-1) z^(n-1)),
the exact R being (2 atanh(s) - 2 s) / s. The fit is a Chebyshev approximation (mpmath.chebyfit)
of R(z) / z on [0, z_max]; the error printed is the largest of |approximation - ln m| / |ln m|
over m, with the coefficients rounded to double.

Usage: tools/fit_log_div_poly.py          prints the EP fit (3 terms).
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


fit("EP", 3)

