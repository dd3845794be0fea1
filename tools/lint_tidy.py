#!/usr/bin/env python3
"""Runs clang-tidy 14 over the sources of the product, or over those below the given paths.

Tests are left out: they use g++'s precompiled header, which clang cannot read, and the macros of GoogleTest are not
ours to judge. What was clean is not looked at again until it, a header of the tree that it includes, its command line
or .clang-tidy changes; the headers are those that ninja noted when it built.
Usage: lint_tidy.py BUILD [PATH...]
"""
import hashlib
import json
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import tree

CLANG_TIDY = "clang-tidy-14"
SEEN = "tidy.json"


def product_sources(root, paths=()):
    """Returns the sources that are no tests, those below one of `paths` when there are any."""
    wanted = [Path(os.path.normpath(path)) for path in paths]
    found = [source for source in tree.files(root, (".cpp",)) if not tree.is_test(source)]
    return [source for source in found if not wanted or any(source.is_relative_to(path) for path in wanted)]


def commands(root, build):
    """Returns how each source is compiled."""
    entries = json.loads((build / "compile_commands.json").read_text())
    return {Path(os.path.relpath(entry["file"], root.resolve())): entry["command"] for entry in entries}


def inclusions(root, build, listing):
    """Returns the files of the tree that each source was made of. `listing` is what `ninja -t deps` says."""
    made, files = {}, []
    for line in listing.splitlines() + [""]:
        if line.startswith(" "):
            files.append(Path(os.path.relpath((build / line.strip()).resolve(), root.resolve())))
        elif not line and files:
            made[files[0]] = sorted(path for path in files if path.parts[0] in tree.FLOORS)
            files = []
    return made


def key(root, command, files):
    """What a verdict depends on."""
    digest = hashlib.sha256(command.encode())
    for path in [Path(".clang-tidy"), *files]:
        digest.update(str(path).encode() + b"\0" + (root / path).read_bytes())
    return digest.hexdigest()


def faults_of(root, build, source):
    """Returns what clang-tidy finds, or None."""
    run = subprocess.run([CLANG_TIDY, "--quiet", "-p", str(build), str(source)], cwd=root, capture_output=True,
                         text=True, check=False)
    return None if run.returncode == 0 else run.stdout + run.stderr


def main(build, *paths):
    root, build = Path("."), Path(build)
    listing = subprocess.run(["ninja", "-C", str(build), "-t", "deps"], capture_output=True, text=True, check=True)
    compiled, included = commands(root, build), inclusions(root, build, listing.stdout)
    sources = [source for source in product_sources(root, paths) if source in compiled]
    if not sources:
        print(f"no source of the product below {' '.join(paths)}")
        return 1
    keys = {source: key(root, compiled[source], included[source]) for source in sources if source in included}
    seen = json.loads((build / SEEN).read_text()) if (build / SEEN).exists() else {}
    due = [source for source in sources if source not in keys or seen.get(str(source)) != keys[source]]
    failed = 0
    with ThreadPoolExecutor(int(os.environ.get("TARN_JOBS", os.cpu_count()))) as pool:
        for source, faults in zip(due, pool.map(lambda source: faults_of(root, build, source), due)):
            if faults:
                failed += 1
                print(faults, end="", flush=True)
            elif source in keys:
                seen[str(source)] = keys[source]
                (build / SEEN).write_text(json.dumps(seen))
    print(f"clang-tidy: {len(due)} sources looked at, {len(sources) - len(due)} clean as before, {failed} with findings")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
