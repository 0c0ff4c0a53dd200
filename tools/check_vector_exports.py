#!/usr/bin/env python3
"""Checks the vector exports of the shared library against the master list.

Usage: check_vector_exports.py NM LIBRARY ROOT
Every line of vector/frame/functions.def with kernels must be exported in its four forms, and no
other symbol of the vector naming scheme (v or vm, a type letter, a name of the master list) may
be exported: a name still without kernels has no export. Exits 1 and lists the differences.
"""
import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import vector_list  # noqa: E402


def main():
    nm, lib, root = sys.argv[1:4]
    entries = vector_list.parse(root)
    expected = set()
    for e in entries:
        if e.cells is not None:
            expected.update(vector_list.export_names(e))
    names = {e.lname for e in entries}
    out = subprocess.run([nm, "-D", "--defined-only", lib], check=True, capture_output=True,
                         text=True).stdout
    exported = set()
    for line in out.splitlines():
        sym = line.split()[-1]
        m = re.match(r"^vm?[sdcz](\w+)$", sym)
        if m and m.group(1).lower() in names:
            exported.add(sym)
    missing = sorted(expected - exported)
    extra = sorted(exported - expected)
    for s in missing:
        print(f"listed with kernels but not exported: {s}")
    for s in extra:
        print(f"exported but not listed with kernels: {s}")
    if missing or extra:
        return 1
    print(f"{len(expected)} vector exports match the master list "
          f"({sum(e.cells is not None for e in entries)} of {len(entries)} lines have kernels)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
