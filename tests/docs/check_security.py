#!/usr/bin/env python3
"""Checks that docs/security.md promises nothing that no test shows.

Usage: check_security.py ROOT

Two words in backticks with a dot between them are a test: there must be a TEST, TEST_F or TEST_P of that suite and name
in a test program that the build lists. Every promise, a list item or a table row of the sections that PROMISES names, has
a test in it, or one of the words that say why there is none.
"""
import re
import sys
from pathlib import Path

PROMISES = ("What is promised", "Mistakes that others made")
EXCUSES = ("belongs to TLS, not there yet", "belongs to object stores, not there yet")

NAMED = re.compile(r"`([A-Z]\w*\.[A-Z]\w*)`")
DEFINED = re.compile(r"\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)")


def tests_of(root):
    """Every Suite.Name of the tree's test sources that a CMakeLists.txt at or above them lists."""
    known = set()
    for source in root.glob("*/**/*_test.cpp"):
        above = [folder / "CMakeLists.txt" for folder in source.parents if folder.is_relative_to(root)]
        is_built = any(source.name in listed.read_text() for listed in above if listed.exists())
        if is_built and source.relative_to(root).parts[0] != "build":
            known.update(f"{suite}.{name}" for suite, name in DEFINED.findall(source.read_text()))
    return known


def promises_of(text):
    """The list items and table rows below the headings in PROMISES, each as one text."""
    section = ""
    promise = None
    for line in text.splitlines() + ["#"]:
        starts = line.startswith(("- ", "| "))
        if promise is not None and (starts or not line.startswith("  ")):
            yield promise
            promise = None
        if line.startswith("#"):
            section = line.lstrip("#").strip()
        elif starts and section in PROMISES and not re.match(r"\| (---|Mistake)", line):
            promise = line
        elif promise is not None:
            promise += " " + line.strip()


def faults_of(text, known):
    faults = [f"no such test: {name}" for name in NAMED.findall(text) if name not in known]
    promises = list(promises_of(text))
    for section in PROMISES:
        if f"# {section}\n" not in text:
            faults.append(f"no section: {section}")
    if not promises:
        faults.append("nothing is promised")
    for promise in promises:
        if not NAMED.search(promise) and not any(excuse in promise for excuse in EXCUSES):
            faults.append(f"no test shows it: {promise[:100]}")
    return faults


def check_the_check():
    """A sound document passes; each way in which one can be wrong is noticed."""
    sound = ("# What is promised\n- a thing:\n  `A.B`\n\n# Mistakes that others made\n\n| Mistake | Rule | Test |\n| --- | "
             "--- | --- |\n| x | y | `C.D` |\n| x | y | belongs to TLS, not there yet |\n")
    known = {"A.B", "C.D"}
    assert faults_of(sound, known) == [], faults_of(sound, known)
    for broken in (sound.replace("A.B", "A.X"), sound.replace("`C.D`", "none"), sound.replace("`A.B`", "surely"),
                   sound.replace("TLS", "us"), sound.replace("What is promised", "What is not"), ""):
        assert faults_of(broken, known), broken
    assert faults_of(sound, {"A.B"})


def main(root):
    check_the_check()
    document = Path(root) / "docs" / "security.md"
    faults = faults_of(document.read_text(), tests_of(Path(root)))
    for fault in faults:
        print(f"docs/security.md: {fault}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
