#!/usr/bin/env python3
"""Fails when library code allocates memory outside the library's allocator.

Every allocation of the library goes through tvx_malloc/tvx_free, so that the thread caches,
statistics and high-bandwidth memory see it. This scans the library's sources (not tests, tools,
benchmarks or examples) for C heap calls, operator new and allocating standard containers.
Usage: check_allocation.py <source root>
"""
import pathlib
import re
import sys

AREAS = ["runtime", "simd", "vector", "random", "stats", "include"]
# The allocator itself is the one place that talks to the heap.
EXEMPT = {"runtime/memory.cpp"}
PATTERNS = [
    (re.compile(r"(?<![\w.>:])(?:std::)?(malloc|calloc|realloc|free|aligned_alloc|posix_memalign|"
                r"memalign|valloc|strdup|strndup)\s*\("), "C heap call"),
    (re.compile(r"(?<![\w.])new(\s*\(|\s+[A-Za-z_:])"), "operator new"),
    (re.compile(r"(?<![\w.])delete(\s*\[\s*\]\s*[A-Za-z_(]|\s+[A-Za-z_(:]|\s*\()"), "operator delete"),
    (re.compile(r"std::(vector|string|basic_string|deque|list|map|set|unordered_\w+|"
                r"unique_ptr|shared_ptr|make_unique|make_shared|function)\b"), "allocating type"),
]


def strip_comments(text):
    text = re.sub(r"/\*.*?\*/", lambda m: "\n" * m.group(0).count("\n"), text, flags=re.S)
    text = re.sub(r"//[^\n]*", "", text)
    return re.sub(r'"(?:\\.|[^"\\\n])*"', '""', text)


def main():
    root = pathlib.Path(sys.argv[1])
    faults = []
    for area in AREAS:
        for path in sorted((root / area).rglob("*")):
            if path.suffix not in {".c", ".cpp", ".h", ".inc"}:
                continue
            rel = path.relative_to(root).as_posix()
            if rel in EXEMPT:
                continue
            lines = strip_comments(path.read_text(errors="replace")).splitlines()
            for number, line in enumerate(lines, 1):
                for pattern, what in PATTERNS:
                    if pattern.search(line):
                        faults.append(f"{rel}:{number}: {what}: {line.strip()}")
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
