#!/usr/bin/env python3
"""Certifies that members of the MT2203 set have full period 2^2203 - 1.

For each row (twist word, tempering masks) of random/streams/mt2203_params.inc, and for the
published last row of the set (member 6023), the characteristic polynomial f of the member's
transition is found by Berlekamp-Massey on the lowest output bit (tools/gen_twister_polys.py) and
must have degree 2203. As 2203 is prime, f is irreducible exactly when x^(2^2203) = x mod f and f
has no root (f(0) = f(1) = 1); as 2^2203 - 1 is prime too, an irreducible f is primitive, which
is the full period. All characteristic polynomials must also differ.

    python3 tools/certify_mt2203.py random/streams/mt2203_params.inc [first count ...]

Several first/count pairs take several stretches of rows; without any, every row is taken.

Prints one line per row and exits non-zero if any row fails.
"""
import os
import re
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gen_rng_kat as ref  # noqa: E402
import gen_twister_polys as polys  # noqa: E402

DEGREE = 2203
PUBLISHED_LAST = (6023, (0xE8761D4B, 0x72967680, 0xEFEB0000))


def read_rows(path):
    text = open(path).read()
    body = text[text.index("kMt2203Rows"):text.index("kMt2203Last")]
    return [tuple(int(w, 16) for w in row)
            for row in re.findall(r"\{(0x[0-9A-Fa-f]+)u, (0x[0-9A-Fa-f]+)u, (0x[0-9A-Fa-f]+)u\}",
                                  body)]


def characteristic(row):
    words = ref.mt2203(0, [0x5EED], 2 * DEGREE + 64, row=row)
    length, c = polys.berlekamp_massey([w & 1 for w in words])
    if length != DEGREE:
        return None
    # Reciprocal of the connection polynomial, as an int (bit e = coefficient of x^e).
    return sum(1 << (length - j) for j in range(length + 1) if (c >> j) & 1)


def primitive(f):
    if f & 1 == 0 or bin(f).count("1") % 2 == 0:  # a root at 0 or at 1
        return False
    top = DEGREE
    g = 2  # x
    for _ in range(DEGREE):
        g = int("0".join(bin(g)[2:]), 2)  # squaring over the field spreads the bits
        while g.bit_length() > top:
            g ^= f << (g.bit_length() - 1 - top)
    return g == 2


def main():
    rows = read_rows(sys.argv[1])
    spans = [int(a) for a in sys.argv[2:]] or [0, len(rows)]
    if len(spans) % 2:
        sys.exit("rows are given as first/count pairs")
    cases = [(m, rows[m]) for first, count in zip(spans[::2], spans[1::2])
             for m in range(first, min(len(rows), first + count))]
    cases.append(PUBLISHED_LAST)
    seen = {}
    failed = 0
    start = time.time()
    for member, row in cases:
        f = characteristic(row)
        ok = f is not None and primitive(f) and f not in seen
        verdict = "primitive" if ok else "FAILED"
        print(f"member {member}: {row[0]:08x} {row[1]:08x} {row[2]:08x} {verdict}")
        failed += not ok
        if f is not None:
            seen[f] = member
    print(f"{len(cases) - failed} passed, {failed} failed ({time.time() - start:.1f} s)")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
