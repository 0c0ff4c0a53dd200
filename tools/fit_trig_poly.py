#!/ usr / bin / env python3
"""Near-minimax polynomials of the trigonometric kernels.

Usage: tools/fit_trig_poly.py
On |r| <= pi/4 (after reduction by pi/2) the kernels evaluate
    sin r = r + r^3 * S(r^2),   cos r = 1 - r^2/2 + r^4 * C(r^2).
For each level the script prints the coefficients of S and C (lowest power first, as C hex
floats, rounded to double) and the largest error of the rounded polynomial relative to sin or
cos, sampled densely. The fit is a Chebyshev approximation (mpmath.chebyfit) in z = r^2 of
(sin r - r) / r^3 and of (cos r - 1 + r^2/2) / r^4, within a small factor of the minimax.
"""
import mpmath as mp

mp.mp.prec = 200
Z = (mp.pi / 4) ** 2


def s_target(z):
    if z < mp.mpf(2) ** -80:
        return mp.mpf(-1) / 6 + z / 120
    r = mp.sqrt(z)
    return (mp.sin(r) - r) / (r * z)


def c_target(z):
    if z < mp.mpf(2) ** -80:
        return mp.mpf(1) / 24 - z / 720
    r = mp.sqrt(z)
    return (mp.cos(r) - 1 + z / 2) / (z * z)


def fit(name, target, terms, is_sin):
    coeffs, _ = mp.chebyfit(target, [0, Z], terms, error=True)
    c = [float(x) for x in reversed(coeffs)]
    worst = mp.mpf(0)
    for i in range(1, 3001):
        r = mp.sqrt(Z) * i / 3000
        z = r * r
        p = sum(mp.mpf(ck) * z**k for k, ck in enumerate(c))
        if is_sin:
            got, want = r + r * z * p, mp.sin(r)
        else:
            got, want = 1 - z / 2 + z * z * p, mp.cos(r)
        worst = max(worst, abs(got - want) / abs(want))
    print(f"{name}: {terms} terms, relative error 2^{mp.nstr(mp.log(worst, 2), 4)}")
    print("  " + ", ".join(x.hex() for x in c))

#Double HA, LA, EP; single HA, LA, EP(evaluated in double).
for level, ns, nc in (("HA", 7, 6), ("LA", 6, 6), ("EP", 4, 4), ("single HA", 4, 4),
                      ("single LA", 3, 3), ("single EP", 2, 2)):
    fit(f"{level} sin", s_target, ns, True)
    fit(f"{level} cos", c_target, nc, False)

#Sin of the LA and EP designs that reduce by pi : sin r = r + r ^ 3 S(r ^ 2) on | r | <= pi / 2.
Z = (mp.pi / 2) ** 2
for level, ns in (("wide LA", 7), ("wide LA+", 8), ("wide EP", 5), ("wide single LA", 4),
                  ("wide single EP", 3)):
    fit(f"{level} sin", s_target, ns, True)
