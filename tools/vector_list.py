"""Reads the master list of vector functions, vector/frame/functions.def.

parse(root) gives one Entry per line, in file order: the function, its type letter, its class,
flags, and for a line with kernels its 15 cell tags (rows LA, HA, EP, each for variants 0, 1, 2,
3, 5) with the cell patterns of functions.h expanded; a name without kernels has cells None.
"""
import os
import re
from collections import namedtuple

Entry = namedtuple("Entry", "name lname t cls flags cells")

VARIANTS = ["sse2", "sse2b", "sse42", "avx2", "avx512"]
LEVELS = ["LA", "HA", "EP"]


def _strip_comments(text):
    return re.sub(r"//[^\n]*", "", text)


def _macros(text):
    """Function-like and object-like #defines of functions.h, continuation lines joined."""
    text = text.replace("\\\n", " ")
    out = {}
    for m in re.finditer(r"^#define\s+(\w+)(\(([^)]*)\))?[ \t]*(.*)$", text, re.M):
        params = [p.strip() for p in m.group(3).split(",")] if m.group(2) else None
        out[m.group(1)] = (params, m.group(4).strip())
    return out


def _split_args(s):
    """Top-level comma split of s (no surrounding parentheses)."""
    args, depth, cur = [], 0, ""
    for ch in s:
        if ch == "," and depth == 0:
            args.append(cur.strip())
            cur = ""
            continue
        depth += ch == "("
        depth -= ch == ")"
        cur += ch
    if cur.strip():
        args.append(cur.strip())
    return args


def _expand_cells(text, macros):
    text = text.strip()
    m = re.match(r"^(\w+)\s*(\((.*)\))?$", text, re.S)
    if m and m.group(1) in macros:
        params, body = macros[m.group(1)]
        if params:
            values = _split_args(m.group(3))
            for p, v in zip(params, values):
                body = re.sub(r"\b%s\s*##\s*" % re.escape(p), v, body)
                body = re.sub(r"\b%s\b" % re.escape(p), v, body)
        text = body.strip()
    if not (text.startswith("(") and text.endswith(")")):
        raise SystemExit(f"cannot expand cells: {text}")
    cells = _split_args(text[1:-1])
    if len(cells) != 15:
        raise SystemExit(f"expected 15 cells, got {len(cells)}: {text}")
    return cells


def parse(root):
    defs = _strip_comments(open(os.path.join(root, "vector/frame/functions.def")).read())
    macros = _macros(open(os.path.join(root, "vector/frame/functions.h")).read())
    out = []
    for m in re.finditer(r"^\s*(TVX_VFN|TVX_VNAME)\(", defs, re.M):
        # The line's arguments: up to the parenthesis that closes the call.
        depth, i = 1, m.end()
        while depth:
            depth += defs[i] == "("
            depth -= defs[i] == ")"
            i += 1
        args = _split_args(defs[m.end():i - 1])
        if m.group(1) == "TVX_VNAME":
            name, lname, t, cls, flags = args
            out.append(Entry(name, lname, t, cls, flags, None))
        else:
            name, lname, t, cls, flags, cells, _costs = args
            out.append(Entry(name, lname, t, cls, flags, _expand_cells(cells, macros)))
    return out


def export_names(entry):
    """The four exported forms of a line with kernels."""
    t, name, lname = entry.t, entry.name, entry.lname
    return [f"v{t}{name}", f"vm{t}{name}", f"v{t}{lname}", f"vm{t}{lname}"]
