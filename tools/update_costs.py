#!/usr/bin/env python3
"""Writes measured cost weights into vector/frame/functions.def.

Usage: build/tools/tvx-measure-costs | tools/update_costs.py [ROOT]
Reads lines "Name t (c0, ..., c14)" and replaces the cost tuple of the matching TVX_VFN line.
Lines of functions.def without a measurement are left as they are.
"""
import os
import re
import sys


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..")
    path = os.path.join(root, "vector/frame/functions.def")
    measured = {}
    for line in sys.stdin:
        m = re.match(r"^\s*(\w+)\s+(\w)\s+(\([^)]*\))\s*$", line)
        if m and m.group(3).count(",") == 14:
            measured[(m.group(1), m.group(2))] = m.group(3)
    text = open(path).read()
    count = 0

    def repl(m):
        nonlocal count
        key = (m.group(2), m.group(3))
        if key not in measured:
            return m.group(0)
        count += 1
        return m.group(1) + measured[key] + ")"

    # TVX_VFN(Name, lname, t, class, flags, cells, (costs))
    pattern = re.compile(
        r"(TVX_VFN\(\s*(\w+)\s*,\s*\w+\s*,\s*(\w)\s*,\s*\w+\s*,\s*\w+\s*,\s*(?:\w+(?:\([^)]*\))?)\s*,\s*)"
        r"(?:\([^)]*\)|TVX_COSTS_ONE\([^)]*\))\)", re.S)
    text = pattern.sub(repl, text)
    open(path, "w").write(text)
    print(f"updated {count} of {len(measured)} measured lines")
    return 0


if __name__ == "__main__":
    sys.exit(main())
