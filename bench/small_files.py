#!/usr/bin/env python3
"""Compares ways to bring a tree of many small files to another place: `tarn cp` to an agent with and without batches
against rsync, and `tarn blob apply` against tar.

Usage: small_files.py [--quick] [--rounds N]

The tree has 50,000 files of 0 to 16 KiB in 500 directories; half of them can be compressed, and a fixed seed makes them
the same in every run. The contenders take turns, each round goes to a place that is not there yet, the median counts. A
ratio above 1 means faster than the first of the table in the same run. `tarn cp` and rsync are durable (the files are
synced before they tell success), over loopback but for the second rsync, which has no wire; `tarn blob apply` and
`tar x` both leave the writing back to the system. Memory is the peak of the resident memory (VmHWM); of `tarn cp` and
`tarn serve` it is told for each way. Nothing is deleted before the end: ext4 makes files slower for minutes after many
were deleted. Needs `tarn`, `rsync` (with --fsync) and `tar` in PATH, and as space in TMPDIR the data six times for each
round. Exits with 1 when something failed or differs, or when `tarn` took more memory than it may.
"""
import argparse
import os
import random
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from vs_rsync import MEMORY_LIMIT, MIB, SEED, RsyncDaemon, TarnAgent, peak_memory, timed, tree_size, words

FILES_IN_A_DIRECTORY = 100
LARGEST = 16 << 10


def make_tree(top, count):
    source = random.Random(SEED)
    text = words(source, MIB)
    for number in range(count):
        folder = top / f"{number // FILES_IN_A_DIRECTORY // 20:02}" / f"{number // FILES_IN_A_DIRECTORY % 20:02}"
        folder.mkdir(parents=True, exist_ok=True)
        size = source.randint(0, LARGEST)
        begin = source.randrange(MIB - LARGEST)
        content = source.randbytes(size) if number % 2 else text[begin:begin + size]
        (folder / f"file{number:05}").write_bytes(content)
    make_older(top)


def make_older(top):
    """rsync takes two times within one second for the same, which a copy of a directory made just now would show."""
    yesterday = time.time() - 86_400
    for path in (top, *top.rglob("*")):
        os.utime(path, (yesterday, yesterday))


class Way:
    """One contender: where a round's copy goes and the tree in it, what is done before and what is run for it, and whose
    memory counts."""

    def __init__(self, name, place, command, inside="", prepare=None, agent=None, counts=False):
        self.name = name
        self.place = place
        self.inside = inside
        self.command = command
        self.prepare = prepare
        self.agent = agent
        self.counts = counts
        self.seconds = []
        self.peak = 0


class Bench:
    def __init__(self, folder, count, rounds):
        self.folder = folder
        self.rounds = rounds
        self.tree = folder / "tree"
        make_tree(self.tree, count)
        self.size = tree_size(self.tree)
        self.failed = False

    def run(self, title, ways):
        for number in range(self.rounds):
            for way in ways:
                copy = way.place / f"copy{number}"
                if way.prepare:
                    way.prepare(copy)
                seconds, peak = timed(way.command(copy), self.folder / "log")
                way.seconds.append(seconds)
                way.peak = max(way.peak, peak)
                if number == 0:
                    self.check(way, copy / way.inside)
        self.show(title, ways)
        self.show_memory(ways)

    def check(self, way, copy):
        done = subprocess.run(["tarn", "verify", self.tree, copy], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            print(f"{way.name}: the copy differs\n{done.stdout[:2000]}{done.stderr}")
            self.failed = True

    def show(self, title, ways):
        reference = statistics.median(ways[0].seconds)
        print(f"\n{title}, {self.size / 1e6:.0f} MB")
        print(f"  {'':<30}{'seconds':>9}{'MB/s':>9}{'ratio':>8}   all rounds")
        for way in ways:
            seconds = statistics.median(way.seconds)
            rounds = " ".join(f"{value:.2f}" for value in way.seconds)
            print(f"  {way.name:<30}{seconds:>9.2f}{self.size / 1e6 / seconds:>9.1f}{reference / seconds:>8.2f}   {rounds}",
                  flush=True)

    def show_memory(self, ways):
        print("  peak resident memory")
        for way in ways:
            if way.counts:
                self.show_peak(way.name, way.peak)
            if way.agent:
                self.show_peak(f"its tarn serve ({way.name})", peak_memory(way.agent.child.pid))

    def show_peak(self, name, peak):
        over = peak > MEMORY_LIMIT
        self.failed = self.failed or over or peak == 0
        print(f"    {name:<44}{peak / MIB:>7.1f} MiB{'   OVER the limit' if over else ''}", flush=True)


def compare_copies(bench, folder):
    """Each way of `tarn cp` has an agent of its own, so that the memory is that of the one way."""
    roots = {name: folder / name for name in ("rsync", "local", "batches", "single")}
    for root in roots.values():
        root.mkdir()
    agents = {name: TarnAgent(roots[name]) for name in ("batches", "single")}
    rsync = RsyncDaemon(roots["rsync"], folder)

    def tarn(name, *options):
        return Way(" ".join(("tarn cp", *options)), roots[name],
                   lambda copy: agents[name].command(bench.tree, copy.name, *options), agent=agents[name], counts=True)

    try:
        bench.run("durable copies", [
            Way("rsync -a --fsync to its daemon", roots["rsync"], lambda copy: rsync.command(bench.tree, copy.name)),
            Way("rsync -a --fsync, no wire", roots["local"],
                lambda copy: ["rsync", "-a", "--fsync", f"{bench.tree}/", copy]),
            tarn("batches"),
            tarn("single", "--no-batch"),
        ])
    finally:
        for daemon in (*agents.values(), rsync):
            daemon.child.terminate()
            daemon.child.wait()


def compare_blobs(bench, folder):
    blobs = folder / "blobs"
    places = {name: folder / f"unpacked by {name}" for name in ("tar", "tarn")}
    for place in (blobs, *places.values()):
        place.mkdir()
    archive = folder / "tree.tar"
    subprocess.run(["tar", "--create", "--format=posix", f"--file={archive}", f"--directory={bench.tree}", "."], check=True)

    def pack(copy):
        copy.mkdir()
        subprocess.run(["tarn", "blob", "pack", bench.tree, "--out", blobs, "--target", copy], check=True,
                       stdout=subprocess.DEVNULL)

    bench.run("trees unpacked", [
        Way("tar x", places["tar"], lambda copy: ["tar", "--extract", f"--file={archive}", f"--directory={copy}"],
            prepare=Path.mkdir),
        Way("tarn blob apply", places["tarn"], lambda copy: ["tarn", "blob", "apply", blobs],
            inside=bench.tree.name, prepare=pack, counts=True),
    ])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--quick", action="store_true", help="5,000 files instead of 50,000")
    parser.add_argument("--rounds", type=int, default=3, help="how often each contender runs (default 3)")
    arguments = parser.parse_args()
    if "--fsync" not in subprocess.run(["rsync", "--help"], capture_output=True, text=True, check=True).stdout:
        sys.exit("small_files: this rsync has no --fsync")
    count = 5_000 if arguments.quick else 50_000
    with tempfile.TemporaryDirectory(prefix="tarn-bench.") as name:
        bench = Bench(Path(name), count, arguments.rounds)
        print(f"{count} files of 0 to {LARGEST >> 10} KiB, {FILES_IN_A_DIRECTORY} to a directory")
        compare_copies(bench, Path(name))
        compare_blobs(bench, Path(name))
    return 1 if bench.failed else 0


if __name__ == "__main__":
    sys.exit(main())
