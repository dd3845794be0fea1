#!/usr/bin/env python3
"""Asks clang-format 14 whether every C++ file of the tree is formatted as .clang-format says.

Another version formats differently, so only this one is asked; `./dev format` applies it.
Usage: lint_format.py [ROOT]
"""
import subprocess
import sys
from pathlib import Path

import tree

CLANG_FORMAT = "clang-format-14"


def unformatted(root):
    """Returns the files that clang-format would change, relative to `root`."""
    names = [str(source) for source in tree.sources(root)]
    if not names:
        return []
    run = subprocess.run([CLANG_FORMAT, "--dry-run", *names], cwd=root, capture_output=True, text=True, check=True)
    findings = [line for line in run.stderr.splitlines() if "[-Wclang-format-violations]" in line]
    return sorted({line.split(":", 1)[0] for line in findings})


def main(root="."):
    faults = unformatted(Path(root))
    for fault in faults:
        print(f"{fault}:1: not formatted; run ./dev format")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
