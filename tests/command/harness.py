"""What the tests of the command share: running `tarn`, a receiving agent as a child, trees to copy, listings to compare.

The program under test is named by the environment variable TARN.
"""
import hashlib
import os
import queue
import shutil
import signal
import socket
import stat
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path

TARN = os.environ["TARN"]
LIMIT = 180  # seconds; nothing here takes more than one or two, but the machine may have more to do

os.umask(0o022)  # whoever runs the tests may have another one; the modes here are those of this one

# The same user without the privilege to read or change what the mode forbids.
UNPRIVILEGED = ["setpriv", "--bounding-set=-dac_override,-dac_read_search,-fowner,-chown"] if os.geteuid() == 0 else []


class Result:
    """How one command ended."""

    def __init__(self, done):
        self.status = done.returncode
        self.out = done.stdout
        self.err = done.stderr

    @property
    def text(self):
        return self.out.decode()

    @property
    def errors(self):
        return self.err.decode()

    def __repr__(self):
        return f"status {self.status}\n--- out\n{self.out!r}\n--- err\n{self.err!r}"


def tarn(*arguments, stdin=b"", cwd=None, wrapper=()):
    command = [*wrapper, TARN, *(os.fspath(argument) for argument in arguments)]
    return Result(subprocess.run(command, input=stdin, capture_output=True, cwd=cwd, timeout=LIMIT, check=False))


class Served:
    """A receiving agent over `root`; `lines` are those of its standard output after the first."""

    def __init__(self, root, *options, wrapper=()):
        command = [*wrapper, TARN, "serve", "--listen", "127.0.0.1:0", "--root", os.fspath(root), "--plaintext", *options]
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
        self._lines = queue.Queue()
        self._errors = []
        self._readers = [threading.Thread(target=self._read_lines), threading.Thread(target=self._read_errors)]
        for reader in self._readers:
            reader.start()
        first = self.next_line()
        if not first.startswith("listening on "):
            self.stop()
            raise AssertionError(f"tarn serve did not start: {first!r} {self.errors}")
        self.address = first.removeprefix("listening on ")

    def _read_lines(self):
        for line in self.process.stdout:
            self._lines.put(line.decode().rstrip("\n"))
        self._lines.put(None)

    def _read_errors(self):
        self._errors.append(self.process.stderr.read())

    def next_line(self):
        """The next line, or "" when the agent has ended."""
        return self._lines.get(timeout=LIMIT) or ""

    def url(self, path=""):
        return f"tarn://{self.address}/{path}"

    def stop(self, how=signal.SIGTERM):
        """Ends it and returns its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(how)
        try:
            status = self.process.wait(timeout=LIMIT)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            status = "did not end"
        for reader in self._readers:
            reader.join(timeout=LIMIT)
        self.process.stdout.close()
        self.process.stderr.close()
        return status

    @property
    def errors(self):
        return b"".join(self._errors).decode()


class Narrow:
    """Stands before an agent and lets so many bytes of each connection go there, and everything come back."""

    def __init__(self, address, allowed):
        host, port = address.rsplit(":", 1)
        self._agent = (host, int(port))
        self._allowed = allowed
        self._sockets = []
        self.connections = 0
        self._listening = socket.create_server(("127.0.0.1", 0))
        self.address = f"127.0.0.1:{self._listening.getsockname()[1]}"
        self._threads = [threading.Thread(target=self._accept)]
        self._threads[0].start()

    def _accept(self):
        while True:
            try:
                near = self._listening.accept()[0]
            except OSError:
                return  # closed
            far = socket.create_connection(self._agent)
            self.connections += 1
            self._sockets += (near, far)
            for source, target, allowed in ((near, far, self._allowed), (far, near, None)):
                self._threads.append(threading.Thread(target=self._pass, args=(source, target, allowed)))
                self._threads[-1].start()

    @staticmethod
    def _pass(source, target, allowed):
        try:
            while allowed is None or allowed > 0:
                part = source.recv(65536 if allowed is None else min(65536, allowed))
                if not part:
                    target.shutdown(socket.SHUT_WR)
                    return
                target.sendall(part)
                allowed = None if allowed is None else allowed - len(part)
        except OSError:
            pass  # one end has gone

    def __enter__(self):
        return self

    def __exit__(self, *_):
        """Ends every connection."""
        self._listening.shutdown(socket.SHUT_RDWR)
        self._threads[0].join()
        for end in (*self._sockets, self._listening):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass  # it has ended already
        for thread in self._threads:
            thread.join()
        for end in (*self._sockets, self._listening):
            end.close()


class CommandTest(unittest.TestCase):
    """A test with a directory of its own, `self.dir`, removed with everything in it."""

    maxDiff = None

    def setUp(self):
        self.dir = Path(tempfile.mkdtemp(prefix="tarn-command."))
        self.addCleanup(remove_tree, self.dir)

    def serve(self, root, *options, wrapper=()):
        served = Served(root, *options, wrapper=wrapper)
        self.addCleanup(served.stop)
        return served

    def succeeds(self, *arguments, **how):
        result = tarn(*arguments, **how)
        self.assertEqual(result.status, 0, result)
        return result

    def fails(self, status, *arguments, **how):
        result = tarn(*arguments, **how)
        self.assertEqual(result.status, status, result)
        self.assertNotEqual(result.err, b"", "a failure without a word")
        return result

    def assert_same_tree(self, first, second):
        self.assert_same_listing(listing(first), listing(second))

    def assert_same_listing(self, first, second):
        """Compares what `listing` gave; tells only what differs."""
        different = [f"{name!r}: {first.get(name)} against {second.get(name)}"
                     for name in sorted({*first, *second}) if first.get(name) != second.get(name)]
        self.assertEqual(different, [])


def remove_tree(path):
    for folder, _, _ in os.walk(path):
        os.chmod(folder, 0o700)
    shutil.rmtree(path)


def describe(path):
    """What a copy keeps of one object. Of a link not its mode, which Linux does not have."""
    seen = os.lstat(path)
    what = {"type": stat.S_IFMT(seen.st_mode), "uid": seen.st_uid, "gid": seen.st_gid, "mtime": seen.st_mtime_ns}
    if stat.S_ISLNK(seen.st_mode):
        what["target"] = os.readlink(path)
    else:
        what["mode"] = stat.S_IMODE(seen.st_mode)
    if stat.S_ISREG(seen.st_mode):
        with open(path, "rb") as file:
            what["content"] = hashlib.sha256(file.read()).hexdigest()
    return what


def listing(top):
    """Everything at and below `top`, by its name in bytes."""
    top = os.fsencode(top)
    found = {b"": describe(top)}
    if not os.path.islink(top):
        for folder, directories, files in os.walk(top):
            for name in directories + files:
                path = os.path.join(folder, name)
                found[os.path.relpath(path, top)] = describe(path)
    return found


def names(top):
    """The names below `top`, sorted; without the folder in which a running agent stages."""
    found = sorted(os.fsdecode(name) for name in listing(top) if name)
    return [name for name in found if ".tarn-staging" not in name]


def write(path, content=b"", mode=None, mtime_ns=None):
    """Makes a file and the directories above it."""
    path = Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)
    if mode is not None:
        os.chmod(path, mode)
    if mtime_ns is not None:
        os.utime(path, ns=(mtime_ns, mtime_ns))
    return path


def make_tree(top):
    """A tree with one of everything that a copy keeps: modes, times, links, nothing, holes, more than one block."""
    write(top / "plain.txt", b"plain\n", 0o644, 1_600_000_000_123_456_789)
    write(top / "empty", b"", 0o640, 0)
    write(top / "secret", b"s", 0o600, -14_182_940_000_000_001)
    write(top / "program", b"#!/bin/sh\n", 0o755, 4_102_444_800_000_000_000)
    write(top / "deep/er/still/file", b"deep\n", 0o444)
    write(top / "large", bytes(range(256)) * 12_000, 0o644)
    with open(top / "hole", "wb") as file:
        file.truncate(5 << 20)
    (top / "empty directory").mkdir()
    os.symlink("plain.txt", top / "link")
    os.symlink("/no/such/place", top / "deep/dangling")
    os.utime(top / "link", ns=(1_500_000_000_000_000_001,) * 2, follow_symlinks=False)
    write(top / "shut/inside", b"in a directory that may not be written\n")
    os.chmod(top / "shut", 0o555)
    os.utime(top / "deep", ns=(1_400_000_000_500_000_000,) * 2)
    os.utime(top, ns=(1_300_000_000_250_000_000,) * 2)
    return top


def main():
    unittest.main(verbosity=1)
