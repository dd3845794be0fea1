#!/usr/bin/env python3
"""Compiles every header that has no source of its own, alone: it must bring along whatever it uses.

Headers with a source need no look here: the source includes its header first (see lint.py), so the build proves them.
Usage: lint_self_contained.py [ROOT]
"""
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import tree


def lone_headers(root):
    return [header for header in tree.files(root, (".h",)) if not (root / header.with_suffix(".cpp")).exists()]


def compile_alone(root, header):
    """Returns the compiler's words, or None when the header compiles."""
    command = [os.environ.get("CXX", "g++"), "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-I.",
               "-include", str(header), "-x", "c++", "/dev/null"]
    run = subprocess.run(command, cwd=root, capture_output=True, text=True, check=False)
    return run.stderr or None


def main(root="."):
    headers = lone_headers(Path(root))
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        faults = [fault for fault in pool.map(lambda header: compile_alone(Path(root), header), headers) if fault]
    print("\n".join(faults), end="")
    print(f"{len(headers)} headers without a source compiled alone, {len(faults)} failed")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
