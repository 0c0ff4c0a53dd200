#!/usr/bin/env python3
"""Regenerates the function table of docs/vector.md from vector/frame/functions.def.

Usage: gen_vector_doc.py [--check] [ROOT]
With --check, exits 1 (and prints a diff) when the table is out of date instead of writing it.
One row per function and class: the types with kernels (exported) and without (listed only), the
accuracy levels that have code of their own, and the variants that have code of their own (a
variant not named runs the code of another variant, as the dispatch row says).
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import generated_block  # noqa: E402
import vector_list  # noqa: E402

BEGIN = "<!-- BEGIN GENERATED FUNCTION TABLE -->"
END = "<!-- END GENERATED FUNCTION TABLE -->"

CLASSES = {
    "v_v": "one in, one out",
    "vv_v": "two in, one out",
    "v_vv": "one in, two out",
    "vs_v": "vector and scalar",
    "lfrac": "fractional linear",
    "c_r": "complex to real",
    "r_c": "real to complex",
    "pack_i": "pack by increment",
    "pack_v": "pack by index vector",
    "pack_m": "pack by mask",
    "unpack_i": "unpack by increment",
    "unpack_v": "unpack by index vector",
    "unpack_m": "unpack by mask",
}
TYPE_ORDER = "sdcz"


def code_of(cells):
    """(levels, variants) with code of their own in one row of 15 cell tags."""
    levels, variants = set(), set()
    for tag in cells:
        level, variant = tag.split("_", 1)
        levels.add(level.upper())
        variants.add(variant)
    levels = [l for l in vector_list.LEVELS if l in levels]
    variants = [v for v in vector_list.VARIANTS if v in variants]
    return ("one for all" if len(levels) == 1 else ", ".join(levels)), ", ".join(variants)


def merged(per_type):
    """One text when every type agrees, else 'd: ...; s: ...'."""
    values = set(per_type.values())
    if len(values) == 1:
        return values.pop()
    return "; ".join(f"{t}: {per_type[t]}" for t in TYPE_ORDER if t in per_type)


def generate(root):
    groups = {}
    for e in vector_list.parse(root):
        groups.setdefault((e.name, e.cls), []).append(e)
    rows = ["| Function | Class | Exported types | Listed, no kernels yet | Accuracy levels "
            "| Variants with own code |",
            "|---|---|---|---|---|---|"]
    for (name, cls), entries in sorted(groups.items(), key=lambda kv: (kv[0][0].lower(), kv[0][1])):
        done = sorted((e for e in entries if e.cells), key=lambda e: TYPE_ORDER.index(e.t))
        todo = sorted((e for e in entries if not e.cells), key=lambda e: TYPE_ORDER.index(e.t))
        levels = merged({e.t: code_of(e.cells)[0] for e in done}) if done else ""
        variants = merged({e.t: code_of(e.cells)[1] for e in done}) if done else ""
        rows.append(f"| `{name}` | {CLASSES[cls]} | {' '.join(e.t for e in done)} "
                    f"| {' '.join(e.t for e in todo)} | {levels} | {variants} |")
    total = sum(len(v) for v in groups.values())
    exported = sum(1 for v in groups.values() for e in v if e.cells)
    names = len({name for name, _ in groups})
    rows.append("")
    rows.append(f"{names} names, {total} lines of the master list, {exported} with kernels "
                f"({4 * exported} exports).")
    return "\n".join(rows)


def main():
    return generated_block.run("docs/vector.md", BEGIN, END, generate)


if __name__ == "__main__":
    sys.exit(main())
