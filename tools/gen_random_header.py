#!/usr/bin/env python3
"""Regenerates the distribution declarations of include/tvx_random.h from
random/distributions/distributions.def: every BUILT row gives its export and its lower-case twin.

Usage: gen_random_header.py [--check] [ROOT]
With --check, exits 1 (and prints a diff) when the header is out of date instead of writing it.
"""
import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import generated_block  # noqa: E402

BEGIN = "/* BEGIN GENERATED DISTRIBUTION DECLARATIONS */"
END = "/* END GENERATED DISTRIBUTION DECLARATIONS */"


def split_top(text):
    """Splits at commas that are not inside parentheses."""
    parts, depth, cur = [], 0, ""
    for ch in text:
        if ch == "(":
            depth += 1
        elif ch == ")":
            depth -= 1
        if ch == "," and depth == 0:
            parts.append(cur.strip())
            cur = ""
        else:
            cur += ch
    parts.append(cur.strip())
    return parts


def rows(text):
    text = re.sub(r"//[^\n]*", "", text)
    for m in re.finditer(r"\bTVX_RNG\(", text):
        depth, i = 1, m.end()
        while depth:
            depth += {"(": 1, ")": -1}.get(text[i], 0)
            i += 1
        yield split_top(text[m.end():i - 1])


def params(cls, real, names, twin):
    """(export parameters, twin parameters) after r."""
    p = "const " if twin else ""
    star = "*" if twin else ""
    kinds = {
        "none": [], "r1": ["R"], "r2": ["R"] * 2, "r3": ["R"] * 3, "r4": ["R"] * 4,
        "ir": ["I", "R"], "i2": ["I"] * 2, "i3": ["I"] * 3, "ptr": ["P"], "mv": ["I", "I", "P", "P"],
    }[cls]
    out = []
    for kind, name in zip(kinds, names):
        if kind == "P":
            out.append(f"const {real}* {name}")
        else:
            t = real if kind == "R" else "int"
            out.append(f"{p}{t}{star} {name}")
    return out


def generate(root):
    text = open(os.path.join(root, "random/distributions/distributions.def")).read()
    out = []
    for row in rows(text):
        export, twin, state, outt, real, cls, names = row[:7]
        if state != "BUILT":
            continue
        names = [n.strip() for n in names.strip("()").split(",") if n.strip()]
        head = [f"int method, RudStreamPtr stream, int n, {outt} r[]"]
        out.append(f"TVX_API int {export}({', '.join(head + params(cls, real, names, False))});")
        m = re.fullmatch(r"TWIN\((\w+)\)", twin)
        if m:
            head = [f"const int* method, const RudStreamPtr* stream, const int* n, {outt} r[]"]
            out.append(
                f"TVX_API int {m.group(1)}({', '.join(head + params(cls, real, names, True))});")
    return "\n".join(out)


def main():
    return generated_block.run("include/tvx_random.h", BEGIN, END, generate)


if __name__ == "__main__":
    sys.exit(main())
