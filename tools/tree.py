#!/usr/bin/env python3
"""The C++ files of the tree. Run as a program it prints them, one a line."""
import sys
from pathlib import Path

# Folders with product code, then those that only look at it.
FLOORS = ("mirrowen", "corvel", "brannock", "plovan", "skelder", "linuxacl", "tarn", "agent", "cli")
AROUND = ("tests", "bench", "examples", "fuzz")


def files(root, suffixes, folders=FLOORS + AROUND):
    """Returns the files below `folders` with one of `suffixes`, sorted, as paths relative to `root`."""
    found = []
    for folder in folders:
        found += (path for path in (root / folder).rglob("*") if path.suffix in suffixes and path.is_file())
    return sorted(path.relative_to(root) for path in found)


def sources(root):
    return files(root, (".h", ".cpp"))


def is_test(path):
    """Tests and what stands around the product may look at everything."""
    return path.parts[0] in AROUND or path.stem.endswith(("_test", "_bench", "_fuzz"))


if __name__ == "__main__":
    for source in sources(Path(".")):
        print(source)
    sys.exit(0)
