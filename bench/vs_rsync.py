#!/usr/bin/env python3
"""Compares `tarn cp` to `tarn serve` with rsync to an rsync daemon, both over loopback and both durable (fsync).

Usage: vs_rsync.py [--quick] [--rounds N]

One large file and a tree of many small ones are sent; half of the bytes can be compressed, and a fixed seed makes them
the same in every run. The contenders take turns, each round goes to a place that is not there yet, the median counts.
A ratio above 1 means faster than rsync in the same run. The memory of both ends of `tarn` is the peak of their resident
memory (VmHWM). Copies of the tree stay until the end: ext4 makes files slower for minutes after many were deleted. Needs
`tarn` and `rsync` (with --fsync) in PATH, and as space in TMPDIR the large file three times and the tree ten times.
Exits with 1 when a copy failed or differs, or when an end of `tarn` took more memory than it may.
"""
import argparse
import os
import random
import socket
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SEED = 20_211
MIB = 1 << 20
MEMORY_LIMIT = 128 * MIB
WORDS = [bytes(random.Random(SEED).choices(range(97, 123), k=2 + i % 9)) + b" " for i in range(500)]


def words(source, size):
    """Text that shrinks to a third or so."""
    text = bytearray()
    while len(text) < size:
        text += b"".join(source.choices(WORDS, k=2_000))
    return bytes(text[:size])


def make_large(path, size):
    source = random.Random(SEED)
    texts = [words(source, MIB) for _ in range(8)]
    with open(path, "wb") as file:
        for number in range(size // MIB):
            if number % 2:
                file.write(source.randbytes(MIB))
            else:  # turned around, so that no two blocks are the same
                turn = source.randrange(MIB)
                text = texts[number // 2 % len(texts)]
                file.write(text[turn:] + text[:turn])


def make_small(top, count):
    source = random.Random(SEED)
    text = words(source, MIB)
    for number in range(count):
        folder = top / f"{number % 20:02}" / f"{number // 20 % 20:02}"
        folder.mkdir(parents=True, exist_ok=True)
        size = min(int(source.expovariate(1 / 8192)), 128 << 10)
        begin = source.randrange(MIB - (128 << 10))
        content = source.randbytes(size) if number % 2 else text[begin:begin + size]
        (folder / f"file{number:05}").write_bytes(content)


def peak_memory(pid):
    """VmHWM in bytes, 0 when the process has ended."""
    try:
        for line in Path(f"/proc/{pid}/status").read_text().splitlines():
            if line.startswith("VmHWM:"):
                return int(line.split()[1]) * 1024
    except OSError:
        pass
    return 0


def timed(command, log):
    """Runs a command and returns its seconds and the peak of its memory."""
    os.sync()
    begin = time.monotonic()
    with open(log, "wb") as output, subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT) as child:
        peak = 0
        while True:
            peak = max(peak, peak_memory(child.pid))
            try:
                status = child.wait(timeout=0.01)
                break
            except subprocess.TimeoutExpired:
                continue
    seconds = time.monotonic() - begin
    if status != 0:
        raise RuntimeError(f"{' '.join(map(str, command))} ended with {status}:\n{log.read_text(errors='replace')}")
    return seconds, peak


class TarnAgent:
    def __init__(self, root):
        self.child = subprocess.Popen(["tarn", "serve", "--quiet", "--plaintext", "--listen", "127.0.0.1:0", "--root", root],
                                      stdout=subprocess.PIPE, text=True)
        line = self.child.stdout.readline().strip()
        if not line.startswith("listening on "):
            raise RuntimeError(f"tarn serve did not start: {line}")
        self.address = line.removeprefix("listening on ")

    def command(self, source, target, *options):
        return ["tarn", "cp", "-r", "--quiet", "--plaintext", *options, source, f"tarn://{self.address}/{target}"]


class RsyncDaemon:
    def __init__(self, root, folder):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        owner = "uid = 0\ngid = 0\n" if os.geteuid() == 0 else ""
        config = folder / "rsyncd.conf"
        config.write_text(f"use chroot = no\n{owner}[root]\npath = {root}\nread only = no\n")
        self.child = subprocess.Popen(["rsync", "--daemon", "--no-detach", f"--config={config}", f"--port={self.port}",
                                       "--address=127.0.0.1", f"--log-file={folder / 'rsyncd.log'}"],
                                      stdin=subprocess.DEVNULL)
        for _ in range(200):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            time.sleep(0.05)
        raise RuntimeError("the rsync daemon does not listen")

    def command(self, source, target):
        place = f"{source}/" if source.is_dir() else source
        return ["rsync", "-a", "--fsync", place, f"rsync://127.0.0.1:{self.port}/root/{target}"]


class Bench:
    def __init__(self, folder, rounds):
        self.folder = folder
        self.rounds = rounds
        self.roots = {name: folder / name for name in ("tarn", "rsync")}
        for root in self.roots.values():
            root.mkdir()
        self.tarn = TarnAgent(self.roots["tarn"])
        self.rsync = None
        self.peaks = {"tarn cp": 0}
        self.failed = False

    def contenders(self):
        return {
            "rsync -a --fsync": ("rsync", lambda *places: self.rsync.command(*places)),
            "tarn cp (lz4)": ("tarn", lambda *places: self.tarn.command(*places)),
            "tarn cp --compress none": ("tarn", lambda *places: self.tarn.command(*places, "--compress", "none")),
        }

    def start(self):
        self.rsync = RsyncDaemon(self.roots["rsync"], self.folder)

    def stop(self):
        for daemon in (self.tarn, self.rsync):
            if daemon:
                daemon.child.terminate()
                daemon.child.wait()

    def run(self, title, source, size):
        times = {name: [] for name in self.contenders()}
        for number in range(self.rounds):
            for place, (name, (root, command)) in enumerate(self.contenders().items()):
                copy = self.roots[root] / f"copy{number}.{place}"
                seconds, peak = timed(command(source, copy.name), self.folder / "log")
                times[name].append(seconds)
                if root == "tarn":
                    self.peaks["tarn cp"] = max(self.peaks["tarn cp"], peak)
                if number == 0:
                    self.check(name, source, copy)
                if copy.is_file():
                    copy.unlink()
        self.show(title, size, times)

    def check(self, name, source, copy):
        done = subprocess.run(["tarn", "verify", source, copy], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            print(f"{name}: the copy differs\n{done.stdout[:2000]}{done.stderr}")
            self.failed = True

    @staticmethod
    def show(title, size, times):
        medians = {name: statistics.median(values) for name, values in times.items()}
        reference = next(iter(medians.values()))
        print(f"\n{title}, {size / 1e6:.0f} MB")
        print(f"  {'':<26}{'seconds':>9}{'MB/s':>9}{'ratio':>8}   all rounds")
        for name, seconds in medians.items():
            rounds = " ".join(f"{value:.2f}" for value in times[name])
            print(f"  {name:<26}{seconds:>9.2f}{size / 1e6 / seconds:>9.1f}{reference / seconds:>8.2f}   {rounds}",
                  flush=True)

    def show_memory(self):
        self.peaks["tarn serve"] = peak_memory(self.tarn.child.pid)
        print("\npeak resident memory")
        for name, peak in self.peaks.items():
            over = peak > MEMORY_LIMIT
            self.failed = self.failed or over or peak == 0
            verdict = f"OVER the limit of {MEMORY_LIMIT // MIB} MiB" if over else f"below {MEMORY_LIMIT // MIB} MiB"
            print(f"  {name:<26}{peak / MIB:>9.1f} MiB   {verdict}")


def tree_size(top):
    return sum(path.stat().st_size for path in top.rglob("*") if path.is_file())


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--quick", action="store_true", help="256 MiB and 2,000 files instead of 2 GiB and 20,000")
    parser.add_argument("--rounds", type=int, default=3, help="how often each contender runs (default 3)")
    arguments = parser.parse_args()
    if "--fsync" not in subprocess.run(["rsync", "--help"], capture_output=True, text=True, check=True).stdout:
        sys.exit("vs_rsync: this rsync has no --fsync")
    large_size, count = (256 * MIB, 2_000) if arguments.quick else (2048 * MIB, 20_000)
    with tempfile.TemporaryDirectory(prefix="tarn-bench.") as name:
        folder = Path(name)
        large, small = folder / "large", folder / "small"
        make_large(large, large_size)
        make_small(small, count)
        bench = Bench(folder, arguments.rounds)
        try:
            bench.start()
            bench.run(f"one file of {large_size // MIB} MiB", large, large_size)
            bench.run(f"a tree of {count} files", small, tree_size(small))
            bench.show_memory()
        finally:
            bench.stop()
    return 1 if bench.failed else 0


if __name__ == "__main__":
    sys.exit(main())
