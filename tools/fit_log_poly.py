#!/usr/bin/env python3
"""Minimax fits for the single-precision logarithm kernels without a table.

log1p(r) on [lo, hi] is approximated as r - r^2/2 + r^3 * Q(r), Q of degree n, minimising the
largest relative error of the whole approximation (Remez exchange with weight r^3 / log1p(r)).
The coefficients are then rounded to single precision and the error is measured again.

Usage: fit_log_poly.py DEGREE_OF_Q [LO HI]     (defaults: -1/3 1/3)
Prints the coefficients of r^3 ... r^(3+n) as single-precision bit patterns and the error.
       fit_log_poly.py --check FILE DEGREE...
Fits each degree on the default range and fails unless every bit pattern appears in FILE.
Pure Python (double arithmetic); the target accuracy is single precision.
"""
import math
import struct
import sys


def g(r):
    # (log1p(r) - r + r^2/2) / r^3 without cancellation near 0
    if abs(r) < 0.02:
        s, t, k = 0.0, 1.0, 3
        while k < 40:
            s += (1 if k % 2 else -1) * t / k
            t *= r
            k += 1
        return s
    return (math.log1p(r) - r + 0.5 * r * r) / r ** 3


def w(r):
    if r == 0:
        return 0.0
    return r ** 3 / math.log1p(r)


def solve(a, b):
    n = len(b)
    m = [row[:] + [b[i]] for i, row in enumerate(a)]
    for c in range(n):
        p = max(range(c, n), key=lambda i: abs(m[i][c]))
        m[c], m[p] = m[p], m[c]
        for i in range(c + 1, n):
            f = m[i][c] / m[c][c]
            for j in range(c, n + 1):
                m[i][j] -= f * m[c][j]
    x = [0.0] * n
    for i in reversed(range(n)):
        x[i] = (m[i][n] - sum(m[i][j] * x[j] for j in range(i + 1, n))) / m[i][i]
    return x


def poly(c, r):
    s = 0.0
    for a in reversed(c):
        s = s * r + a
    return s


def remez(n, lo, hi, fixed=()):
    """Fits Q = fixed[0] + fixed[1] r + ... + free terms up to degree n."""
    k = len(fixed)
    free = n + 1 - k
    pts = [0.5 * (lo + hi) + 0.5 * (hi - lo) * math.cos(math.pi * (free - i) / free)
           for i in range(free + 1)]
    grid = [lo + (hi - lo) * i / 20000 for i in range(20001)]
    grid = [r for r in grid if r != 0.0]
    for _ in range(30):
        a, b = [], []
        for i, r in enumerate(pts):
            if r == 0.0:
                r = 1e-9
            a.append([r ** (k + j) for j in range(free)] + [(-1) ** i / w(r)])
            b.append(g(r) - poly(list(fixed), r))
        sol = solve(a, b)
        coef = list(fixed) + sol[:free]
        err = lambda r: (poly(coef, r) - g(r)) * w(r)
        # new reference: extrema of the error between sign changes
        vals = [(r, err(r)) for r in grid]
        ext, cur = [], vals[0]
        for r, e in vals[1:]:
            if (e > 0) == (cur[1] > 0):
                if abs(e) > abs(cur[1]):
                    cur = (r, e)
            else:
                ext.append(cur)
                cur = (r, e)
        ext.append(cur)
        while len(ext) > free + 1:
            # drop the smaller end
            if abs(ext[0][1]) < abs(ext[-1][1]):
                ext.pop(0)
            else:
                ext.pop()
        if len(ext) < free + 1:
            break
        pts = [r for r, _ in ext]
    return coef, max(abs(err(r)) for r in grid)


def to_f32(x):
    return struct.unpack("f", struct.pack("f", x))[0]


def bits(x):
    return struct.unpack("I", struct.pack("f", x))[0]


def fitted(n, lo, hi):
    coef, _ = remez(n, lo, hi)
    return [to_f32(c) for c in coef]


def check(path, degrees):
    text = open(path).read().upper()
    missing = [f"degree {n}: 0x{bits(c):08X}" for n in degrees
               for c in fitted(n, -1 / 3, 1 / 3) if f"0X{bits(c):08X}" not in text]
    for m in missing:
        print(f"{path}: coefficient not found, {m}")
    return 1 if missing else 0


def main():
    if sys.argv[1] == "--check":
        return check(sys.argv[2], [int(a) for a in sys.argv[3:]])
    n = int(sys.argv[1])
    lo, hi = (float(sys.argv[2]), float(sys.argv[3])) if len(sys.argv) > 3 else (-1 / 3, 1 / 3)
    coef = fitted(n, lo, hi)
    grid = [lo + (hi - lo) * i / 20000 for i in range(20001)]
    err = max(abs((poly(coef, r) - g(r)) * w(r)) for r in grid if r != 0)
    for i, c in enumerate(coef):
        print(f"r^{i + 3}: 0x{bits(c):08X}  {c!r}")
    print(f"max relative error {err:.3e} = 2^{math.log2(err):.2f}")


if __name__ == "__main__":
    sys.exit(main())
