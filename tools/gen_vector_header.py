#!/usr/bin/env python3
"""Regenerates the vector declarations of include/tvx_vector.h from vector/frame/functions.def.

Usage: gen_vector_header.py [--check] [ROOT]
With --check, exits 1 (and prints a diff) when the header is out of date instead of writing it.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import generated_block  # noqa: E402
import vector_list  # noqa: E402

BEGIN = "/* BEGIN GENERATED VECTOR DECLARATIONS */"
END = "/* END GENERATED VECTOR DECLARATIONS */"

TYPES = {"s": "float", "d": "double", "c": "TvxComplex8", "z": "TvxComplex16"}
REAL = {"s": "float", "d": "double", "c": "float", "z": "double"}
# Pack and unpack: the arguments after n and a, in the C forms and in the lower-case forms.
MOVES = {
    "pack_i": ("int inca, {T}* y", "const int* inca, {T}* y"),
    "pack_v": ("const int* ia, {T}* y", "const int* ia, {T}* y"),
    "pack_m": ("const int* ma, {T}* y", "const int* ma, {T}* y"),
    "unpack_i": ("{T}* y, int incy", "{T}* y, const int* incy"),
    "unpack_v": ("{T}* y, const int* iy", "{T}* y, const int* iy"),
    "unpack_m": ("{T}* y, const int* my", "{T}* y, const int* my"),
}


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
    elif cls in MOVES:
        rest_c, rest_l = (x.format(T=T) for x in MOVES[cls])
        c = f"int n, const {T}* a, {rest_c}"
        l = f"const int* n, const {T}* a, {rest_l}"
    else:
        raise SystemExit(f"unknown class {cls}")
    return [
        f"TVX_API void v{t}{name}({c});",
        f"TVX_API void vm{t}{name}({c}, unsigned int mode);",
        f"TVX_API void v{t}{lname}({l});",
        f"TVX_API void vm{t}{lname}({l}, const unsigned int* mode);",
    ]


def generate(root):
    # Only lines with kernels are exported; a name still without kernels is not declared.
    out = []
    for e in vector_list.parse(root):
        if e.cells is not None:
            out.extend(forms(e.name, e.lname, e.t, e.cls))
    return "\n".join(out)


def main():
    return generated_block.run("include/tvx_vector.h", BEGIN, END, generate)


if __name__ == "__main__":
    sys.exit(main())
