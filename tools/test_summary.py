#!/usr/bin/env python3
"""Counts a CTest run: prints its output, names what was skipped, and ends with 'N passed, N failed'.

Usage: test_summary.py RESULTS.xml CTEST_OUTPUT CTEST_STATUS
Exits with 1 when a test failed, when nothing ran or when CTest itself failed.
"""
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path


def skipped_itself(mark):
    """CTest calls a test skipped, too, whose program is missing; that one failed."""
    return mark is not None and mark.get("message", "").startswith("SKIP_")


def count(results):
    """Returns the names of the passed, failed and skipped tests in CTest's JUnit file."""
    passed, failed, skipped = [], [], []
    if results.exists():
        for case in ElementTree.parse(results).getroot().iter("testcase"):
            name = case.get("name")
            if case.get("status") == "run":
                passed.append(name)
            elif case.get("status") == "disabled" or skipped_itself(case.find("skipped")):
                skipped.append(name)
            else:
                failed.append(name)
    return passed, failed, skipped


def summary(passed, failed, skipped):
    line = f"{len(passed)} passed, {len(failed)} failed"
    return f"{line}, {len(skipped)} skipped" if skipped else line


def main(results, output, status):
    passed, failed, skipped = count(Path(results))
    good = status == 0 and passed and not failed
    text = Path(output).read_text(errors="replace").splitlines()
    # A good run of thousands of tests is told by its count; a bad one needs everything that CTest said.
    if not good:
        print("\n".join(line for line in text if " Passed " not in line and "  Start " not in line))
    for name in failed:
        print(f"failed: {name}")
    for name in skipped:
        print(f"skipped: {name}")
    if not passed and not failed:
        print("no test ran")
    print(summary(passed, failed, skipped))
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], int(sys.argv[3])))
