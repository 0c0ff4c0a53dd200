#!/usr/bin/env python3
"""Regenerates the vector declarations of include/tvx_vector.h from vector/frame/functions.def.

Usage: gen_vector_header.py [--check] [ROOT]
With --check, exits 1 (and prints a diff) when the header is out of date instead of writing it.
"""
import difflib
import os
import re
import sys

BEGIN = "/* BEGIN GENERATED VECTOR DECLARATIONS */"
END = "/* END GENERATED VECTOR DECLARATIONS */"

TYPES = {"s": "float", "d": "double", "c": "TvxComplex8", "z": "TvxComplex16"}
REAL = {"s": "float", "d": "double", "c": "float", "z": "double"}


def forms(name, lname, t, cls):
    T, R = TYPES[t], REAL[t]
    # (C-form parameters, lower-case parameters) without the mode argument
    if cls == "v_v":
        c = f"int n, const {T}* a, {T}* r"
        l = f"const int* n, const {T}* a, {T}* r"
    elif cls == "vv_v":
        c = f"int n, const {T}* a, const {T}* b, {T}* r"
        l = f"const int* n, const {T}* a, const {T}* b, {T}* r"
    elif cls == "v_vv":
        c = f"int n, const {T}* a, {T}* r1, {T}* r2"
        l = f"const int* n, const {T}* a, {T}* r1, {T}* r2"
    elif cls == "vs_v":
        c = f"int n, const {T}* a, {T} b, {T}* r"
        l = f"const int* n, const {T}* a, const {T}* b, {T}* r"
    elif cls == "lfrac":
        c = (f"int n, const {T}* a, const {T}* b, {T} scalea, {T} shifta, {T} scaleb, "
             f"{T} shiftb, {T}* r")
        l = (f"const int* n, const {T}* a, const {T}* b, const {T}* scalea, const {T}* shifta, "
             f"const {T}* scaleb, const {T}* shiftb, {T}* r")
    elif cls == "c_r":
        c = f"int n, const {T}* a, {R}* r"
        l = f"const int* n, const {T}* a, {R}* r"
    elif cls == "r_c":
        c = f"int n, const {R}* a, {T}* r"
        l = f"const int* n, const {R}* a, {T}* r"
    else:
        raise SystemExit(f"unknown class {cls}")
    return [
        f"TVX_API void v{t}{name}({c});",
        f"TVX_API void vm{t}{name}({c}, unsigned int mode);",
        f"TVX_API void v{t}{lname}({l});",
        f"TVX_API void vm{t}{lname}({l}, const unsigned int* mode);",
    ]


def generate(root):
    text = open(os.path.join(root, "vector/frame/functions.def")).read()
    out = []
    for m in re.finditer(r"^\s*TVX_VFN\(\s*(\w+)\s*,\s*(\w+)\s*,\s*(\w)\s*,\s*(\w+)\s*,", text, re.M):
        out.extend(forms(*m.groups()))
    return "\n".join(out)


def main():
    args = sys.argv[1:]
    check = "--check" in args
    args = [a for a in args if a != "--check"]
    root = args[0] if args else os.path.join(os.path.dirname(__file__), "..")
    path = os.path.join(root, "include/tvx_vector.h")
    header = open(path).read()
    start = header.index(BEGIN) + len(BEGIN)
    stop = header.index(END)
    block = "\n" + generate(root) + "\n"
    new = header[:start] + block + header[stop:]
    if check:
        if new != header:
            sys.stdout.writelines(difflib.unified_diff(
                header.splitlines(True), new.splitlines(True), "tvx_vector.h", "generated"))
            print("include/tvx_vector.h is out of date: run tools/gen_vector_header.py")
            return 1
        return 0
    if new != header:
        open(path, "w").write(new)
    return 0


if __name__ == "__main__":
    sys.exit(main())
