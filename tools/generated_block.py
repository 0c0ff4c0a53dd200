"""Shared main of the generators that own one marked block of a checked-in file.

`run(relpath, begin, end, generate)` rewrites the text between the two markers with
`generate(root)`; with --check it writes nothing and fails with a diff when the block is stale.
"""
import difflib
import os
import sys


def run(relpath, begin, end, generate):
    args = sys.argv[1:]
    check = "--check" in args
    args = [a for a in args if a != "--check"]
    root = args[0] if args else os.path.join(os.path.dirname(sys.argv[0]), "..")
    path = os.path.join(root, relpath)
    text = open(path).read()
    start = text.index(begin) + len(begin)
    stop = text.index(end)
    new = text[:start] + "\n" + generate(root) + "\n" + text[stop:]
    if check:
        if new != text:
            name = os.path.basename(relpath)
            sys.stdout.writelines(difflib.unified_diff(
                text.splitlines(True), new.splitlines(True), name, "generated"))
            print(f"{relpath} is out of date: run tools/{os.path.basename(sys.argv[0])}")
            return 1
        return 0
    if new != text:
        open(path, "w").write(new)
    return 0
