#!/usr/bin/env python3
"""Prints the share of tests in the code base, counting non-blank, non-comment lines.

code  = base/ lawutil/ tools/ examples/ python/  (C++ sources and headers)
tests = tests/  (C++ sources and headers, including support headers and tests/codegen,
        tests/consumer; lawtool .cases files and tests' CMake and shell scripts), and the
        Python module's tests (python/test_*.py)

A C++ line counts unless it is blank, a // comment or inside a /* */ block; a line of a
.cases, CMakeLists.txt or shell file counts unless it is blank or a # comment.
Usage: scripts/test_share.py [repository root]  (default: the parent of scripts/)
"""
import os
import sys

CPP = {".cpp", ".hpp", ".h", ".cc"}
HASH = {".cases", ".sh", ".cmake", ".txt", ".py"}


def count_file(path):
    ext = os.path.splitext(path)[1]
    n = 0
    in_block = False
    with open(path, errors="replace") as f:
        for line in f:
            s = line.strip()
            if ext in HASH:
                n += bool(s) and not s.startswith("#")
                continue
            if in_block:
                if "*/" not in s:
                    continue
                in_block = False
                s = s.split("*/", 1)[1].strip()
            if s.startswith("/*"):
                if "*/" not in s:
                    in_block = True
                    continue
                s = s.split("*/", 1)[1].strip()
            n += bool(s) and not s.startswith("//")
    return n


def count_tree(root, exts):
    by_ext = {}
    for d, _, files in os.walk(root):
        for name in files:
            ext = os.path.splitext(name)[1]
            if ext in exts:
                by_ext[ext] = by_ext.get(ext, 0) + count_file(os.path.join(d, name))
    return by_ext


def main():
    top = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..")
    code = {}
    for d in ("base", "lawutil", "tools", "examples", "python"):
        n = sum(count_tree(os.path.join(top, d), CPP).values())
        code[d] = n
        print(f"code  {d + '/':10} {n:6}")
    tests = count_tree(os.path.join(top, "tests"), CPP | HASH)
    pydir = os.path.join(top, "python")
    for name in sorted(os.listdir(pydir)) if os.path.isdir(pydir) else []:
        if name.startswith("test_") and name.endswith(".py"):
            tests[".py"] = tests.get(".py", 0) + count_file(os.path.join(pydir, name))
    for ext in sorted(tests):
        print(f"tests {ext:10} {tests[ext]:6}")
    c, t = sum(code.values()), sum(tests.values())
    cpp = sum(v for k, v in tests.items() if k in CPP)
    print(f"code  total      {c:6}")
    print(f"tests total      {t:6}  ({100.0 * t / c:.1f}% of code)")
    print(f"tests C++ only   {cpp:6}  ({100.0 * cpp / c:.1f}% of code)")


if __name__ == "__main__":
    main()
