#!/usr/bin/env python3
"""Checks that the SSE2 and SSE4.2 variant objects contain no instruction above their level.

Usage: check_variant_isa.py OBJDUMP name=object.o [name=object.o ...]
Names sse2 and sse2b must hold SSE2 code only (no VEX/EVEX, no SSE3/SSSE3/SSE4); sse42 must hold no
VEX/EVEX. Other names are ignored. Exits 1 and lists the offending instructions on failure.
"""
import re
import subprocess
import sys

ABOVE_SSE2 = re.compile(
    r"^(round(ps|pd|ss|sd)|blendv?(ps|pd)|pblend(vb|w)|ptest|pmins[bd]|pmaxs[bd]|pminu[dw]|"
    r"pmaxu[dw]|pmulld|pmuldq|pcmpeqq|pcmpgtq|pextr[bdq]|pinsr[bdq]|pmov[sz]x\w*|insertps|"
    r"extractps|dpp[sd]|mpsadbw|phminposuw|packusdw|movntdqa|crc32\w*|popcnt|pshufb|palignr|"
    r"ph(add|sub)\w*|pabs[bwd]|psign[bwd]|pmaddubsw|pmulhrsw|h(add|sub)p[sd]|addsubp[sd]|"
    r"movddup|movs[hl]dup|lddqu|lzcnt|andn|bextr|blsi|blsmsk|blsr|bzhi|pdep|pext|"
    r"mulx|rorx|sarx|shlx|shrx)$")
VEX = re.compile(r"^(v\w+|k\w+)$")
VEX_REG = re.compile(r"%(ymm|zmm|k[0-7])\b")


def scan(objdump, path):
    out = subprocess.run([objdump, "-d", "--no-show-raw-insn", path], check=True,
                         capture_output=True, text=True).stdout
    for line in out.splitlines():
        parts = line.split("\t")
        if len(parts) < 2 or not re.match(r"^\s*[0-9a-f]+:$", parts[0]):
            continue
        insn = parts[1].strip()
        if not insn:
            continue
        fields = insn.split(None, 1)
        mnemonic = fields[0]
        if mnemonic in ("rep", "repz", "repnz", "lock", "notrack", "bnd", "data16") and len(fields) > 1:
            fields = fields[1].split(None, 1)
            mnemonic = fields[0]
        operands = fields[1] if len(fields) > 1 else ""
        yield mnemonic, operands, insn


def main():
    objdump = sys.argv[1]
    bad = []
    checked = 0
    for arg in sys.argv[2:]:
        name, path = arg.split("=", 1)
        if name not in ("sse2", "sse2b", "sse42"):
            continue
        checked += 1
        for mnemonic, operands, insn in scan(objdump, path):
            vex = bool(VEX.match(mnemonic)) or bool(VEX_REG.search(operands))
            if vex and mnemonic.startswith("k") and not VEX_REG.search(operands):
                vex = False  # e.g. no k-mnemonics exist in legacy code; keep only real mask ops
            if vex or (name != "sse42" and ABOVE_SSE2.match(mnemonic)):
                bad.append(f"{name}: {path}: {insn}")
    if checked == 0:
        print("no SSE2 or SSE4.2 variant objects given")
        return 1
    if bad:
        print("\n".join(bad[:50]))
        print(f"{len(bad)} instruction(s) above the variant's level")
        return 1
    print(f"checked {checked} object(s): clean")
    return 0


if __name__ == "__main__":
    sys.exit(main())
