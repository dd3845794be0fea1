#!/usr/bin/env python3
"""Checks what a shared library shows: only names of its own namespaces, and at least one.

Usage: lint_exports.py LIBRARY NAME...     (a name is a namespace or a class outside of any)
Weak names pass: templates and inline functions of the standard library and of Boost are emitted wherever they are used.
"""
import re
import subprocess
import sys

PREFIX = re.compile(r"^(vtable|VTT|typeinfo|typeinfo name|guard variable|construction vtable|non-virtual thunk|"
                    r"virtual thunk|covariant return thunk|TLS init function|TLS wrapper function) (for|to) ")
SYMBOL = re.compile(r"^[0-9a-f]* *([A-Za-z]) (.+)$")


def bare(name):
    return PREFIX.sub("", name)


def strong(table):
    """The names that `nm -C` shows as defined and not weak."""
    for line in table.splitlines():
        match = SYMBOL.match(line.strip())
        if match and match.group(1) in "TDBRGS":
            yield bare(match.group(2))


def strangers(table, owners):
    own = tuple(f"{owner}::" for owner in owners)
    # A template's name starts with its return type; its own name is then a later word.
    return [name for name in strong(table)
            if not any(word.startswith(own) or word in owners for word in name.split("(")[0].split())]


def main(library, *owners):
    table = subprocess.run(["nm", "-DC", "--defined-only", library], capture_output=True, text=True, check=True).stdout
    faults = strangers(table, owners)
    for name in faults:
        print(f"{library}: exports {name}")
    if not any(True for _ in strong(table)):
        print(f"{library}: exports nothing")
        return 1
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
