#!/usr/bin/env python3
"""Checks that what a floor's headers offer can be linked: a class with members in a source file carries the floor's
macro, and the shared library shows each class that does.

Usage: lint_exported_classes.py ROOT LIBRARY MACRO FOLDER... [-INTERNAL...]
INTERNAL is a class that stands in a header for the floor's own use; written with a dash in front.
"""
import re
import subprocess
import sys
from pathlib import Path

import tree

CLASS = re.compile(r"^ *(?:class|struct) +(?:(\w+_API) +)?((?:\w+::)*\w+)(?: final)?(?: *:[^:;{][^;{]*)?\s*\{", re.M)


def classes(text):
    """The classes that a header defines, as (macro or None, name without its scope)."""
    return [(macro or None, name.split("::")[-1]) for macro, name in CLASS.findall(text)]


def faults(root, table, macro, folders, internal):
    headers = [path for path in tree.files(root, (".h",), folders) if not tree.is_test(path)]
    sources = "".join((root / path).read_text() for path in tree.files(root, (".cpp",), folders)
                      if not tree.is_test(path))
    found = []
    for path in headers:
        for marked, name in classes((root / path).read_text()):
            if marked == macro and f"::{name}::" not in table and f"::{name}\n" not in table:
                found.append(f"{path}: the library does not show {name}")
            if marked != macro and name not in internal and re.search(rf"\b{name}::~?\w+\(", sources):
                found.append(f"{path}: {name} has members in a source file and no {macro}")
    return found


def main(root, library, macro, *names):
    table = subprocess.run(["nm", "-DC", "--defined-only", library], capture_output=True, text=True, check=True).stdout
    folders = [name for name in names if not name.startswith("-")]
    internal = [name[1:] for name in names if name.startswith("-")]
    found = faults(Path(root), table, macro, folders, internal)
    for fault in found:
        print(fault)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
