#!/usr/bin/env python3
"""Checks what the compiler does not: the direction of includes, sizes, headers' first line, unlisted sources.

Usage: lint.py [ROOT [CHECK...]]     (checks: layers sizes headers todos listed)
A check is a function from the root to a list of findings "path:line: text". A finding that starts with "warning: " is
printed and fails nothing.
"""
import re
import sys
from pathlib import Path

import tree

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')

# What each floor may include besides itself. Arrows point down only; brannock and corvel are strangers to each other.
BELOW = {
    "mirrowen": (),
    "corvel": ("mirrowen",),
    "brannock": ("mirrowen",),
    "plovan": ("mirrowen",),
    "skelder": ("mirrowen",),
    "linuxacl": ("mirrowen",),
    "tarn": ("linuxacl", "skelder", "plovan", "brannock", "corvel", "mirrowen"),
}
BELOW["agent"] = ("tarn",) + BELOW["tarn"]
BELOW["cli"] = ("agent",) + BELOW["agent"]

# linuxacl is a room of libTarnwick and exports with its macro.
EXCEPTIONS = {("linuxacl", "tarn/export.h")}

# Heavy headers: they stay in sources, behind plain interfaces.
SOURCES_ONLY = ("CLI/", "nlohmann/", "spdlog/", "boost/xpressive/")

SOURCE_LINES = 500
HEADER_LINES = 250


def lines_of(path):
    return path.read_text(encoding="utf-8", errors="replace").splitlines()


def includes(path):
    """Yields (line number, opening character, included path)."""
    for number, line in enumerate(lines_of(path), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def layer_fault(source, opening, included):
    """Says what is wrong with one include, or nothing."""
    if source.suffix == ".h" and included.startswith(SOURCES_ONLY):
        return f"{included} belongs in a source, behind a plain interface"
    target = included.split("/")[0]
    ours = "/" in included and target in tree.FLOORS + tree.AROUND
    if opening == '"' and not ours:
        return f'"{included}": our headers are included from the root, others in angle brackets'
    if not ours:
        return None
    if opening == "<":
        return f"<{included}>: our headers are included in quotes"
    floor = source.parts[0]
    if floor not in BELOW:
        return None
    if target in tree.AROUND:
        return None if tree.is_test(source) else f"product code includes {included}"
    if target != floor and target not in BELOW[floor] and (floor, included) not in EXCEPTIONS:
        return f"{floor}/ may not include {target}/ ({included})"
    return None


def layers(root):
    found = []
    for source in tree.sources(root):
        for number, opening, included in includes(root / source):
            fault = layer_fault(source, opening, included)
            if fault:
                found.append(f"{source}:{number}: {fault}")
    return found


def sizes(root):
    """Over the budget is a warning, over twice the budget a fault."""
    found = []
    for source in tree.sources(root):
        budget = HEADER_LINES if source.suffix == ".h" else SOURCE_LINES
        length = len(lines_of(root / source))
        if length > budget:
            warning = "" if length > 2 * budget else "warning: "
            found.append(f"{warning}{source}:{length}: {length} lines, the budget is {budget}")
    return found


def headers(root):
    """A header starts with #pragma once (comments aside); a source includes its own header first.

    The second rule proves that the header is complete: it compiles with nothing before it.
    """
    found = []
    for source in tree.sources(root):
        if source.suffix == ".h":
            code = [line for line in lines_of(root / source) if line.strip() and not line.lstrip().startswith("//")]
            if not code or code[0].strip() != "#pragma once":
                found.append(f"{source}:1: a header starts with #pragma once")
        elif (root / source.with_suffix(".h")).exists():
            first = next((included for _, _, included in includes(root / source)), None)
            if first != str(source.with_suffix(".h")):
                found.append(f"{source}:1: a source includes its own header first")
    return found


def todos(root):
    """A note for later says why it is one: `TODO: reason in a few words`."""
    plain = re.compile(r"\b(TODO|FIXME)\b(?!(\([^)]*\))?: *\S+( +\S+){2})")
    return [f"{source}:{number}: {plain.search(line).group(1)} without a reason"
            for source in tree.sources(root)
            for number, line in enumerate(lines_of(root / source), 1) if plain.search(line)]


def listed(root):
    """Every source is named in the CMakeLists.txt of its folder or of one above, relative to that folder."""
    found = []
    words = {}
    for source in tree.files(root, (".cpp",)):
        for folder in source.parents:
            recipe = root / folder / "CMakeLists.txt"
            if recipe not in words:
                text = "\n".join(line.split("#")[0] for line in lines_of(recipe)) if recipe.exists() else ""
                words[recipe] = set(re.split(r'[\s()"]+', text))
            if str(source.relative_to(folder)) in words[recipe]:
                break
        else:
            found.append(f"{source}:1: no CMakeLists.txt lists this source")
    return found


CHECKS = {check.__name__: check for check in (layers, sizes, headers, todos, listed)}


def main(root=".", *names):
    found = [finding for name in names or CHECKS for finding in CHECKS[name](Path(root))]
    for finding in found:
        print(finding)
    return 1 if any(not finding.startswith("warning: ") for finding in found) else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
