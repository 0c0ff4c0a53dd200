#!/usr/bin/env python3
"""Characteristic polynomials of the Mersenne twisters over the two-element field.

The state transition of a twister is linear over GF(2), so every bit of its output, taken as a
sequence, satisfies the transition's characteristic polynomial; for MT19937 that polynomial is
irreducible of degree 19937, so the minimal polynomial of any non-zero bit sequence is the whole
characteristic polynomial. The Berlekamp-Massey algorithm finds it from 2 x 19937 bits of output
(here the lowest bit of each word of the reference sequence in tools/gen_rng_kat.py).

SFMT19937 steps a block of 128 bits at a time; its transition has a characteristic polynomial of
degree 19968 (the primitive factor of degree 19937 times a small one). The lowest bit of the first
word of each block has the whole polynomial as its minimal polynomial, which the length of the
recurrence found confirms.

The result is written as a C++ include of the exponents of the non-zero terms, ascending:

    python3 tools/gen_twister_polys.py > random/streams/twister_polys.inc
"""
import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gen_rng_kat as ref  # noqa: E402


def berlekamp_massey(bits):
    """Shortest linear recurrence of a GF(2) sequence: returns (L, C) with C the connection
    polynomial as an int (bit j = coefficient of x^j, C(0) = 1) and L its length."""
    c, b = 1, 1
    length, m = 0, 1
    window = 0  # bit j holds s(n - j)
    for n, s in enumerate(bits):
        window = (window << 1) | s
        if ((c & window).bit_count() & 1) == 0:
            m += 1
            continue
        t = c
        c ^= b << m
        if 2 * length <= n:
            length, b, m = n + 1 - length, t, 1
        else:
            m += 1
    return length, c


def characteristic_terms(bits, degree):
    length, c = berlekamp_massey(bits)
    if length != degree:
        raise SystemExit(f"recurrence of length {length}, expected {degree}")
    # The characteristic polynomial is the reciprocal x^L C(1/x) of the connection polynomial.
    return [length - j for j in range(length, -1, -1) if (c >> j) & 1]


def main():
    out = sys.stdout
    start = time.time()
    seq = ref.mt19937_raw([0x123, 0x234, 0x345, 0x456], 2 * 19937 + 64)
    mt = characteristic_terms([ref.mt_temper(w) & 1 for w in seq], 19937)
    out.write("// Exponents of the non-zero terms of the characteristic polynomials of the twisters,\n")
    out.write("// ascending. Written by tools/gen_twister_polys.py (Berlekamp-Massey on the reference\n")
    out.write("// output); regenerate with\n")
    out.write("//   python3 tools/gen_twister_polys.py > random/streams/twister_polys.inc\n")

    def table(name, terms):
        out.write(f"inline constexpr int k{name}Terms = {len(terms)};\n")
        out.write(f"inline constexpr std::uint32_t k{name}Poly[k{name}Terms] = {{\n")
        for i in range(0, len(terms), 8):
            out.write("    " + " ".join(f"{t}u," for t in terms[i:i + 8]) + "\n")
        out.write("};\n")

    blocks = 2 * 19968 + 64
    words = ref.sfmt19937([0x1234, 0x5678, 0x9ABC, 0xDEF0], 4 * blocks)
    sfmt = characteristic_terms([words[4 * i] & 1 for i in range(blocks)], 19968)
    table("Mt19937", mt)
    table("Sfmt19937", sfmt)
    sys.stderr.write(f"polynomials in {time.time() - start:.1f} s\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
