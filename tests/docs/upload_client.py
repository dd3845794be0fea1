#!/usr/bin/env python3
"""Uploads small files to `tarn serve`, written from docs/protocol.md and docs/formats.md alone.

Usage: upload_client.py TARN

Starts `TARN serve` over an empty folder, uploads small files, one by one and in a batch, with a client that shares
nothing with our code, and compares what arrived. One session is the documents' own example, byte by byte.
"""
import os
import re
import socket
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

import frames
from decode_examples import examples

sys.path.append(str(Path(__file__).parents[1] / "command"))
import blob_format as blob  # noqa: E402 pylint: disable=wrong-import-position

BLOCK_SIZE = 4096
PATIENCE = 30  # seconds for any single answer
PREAMBLE = b"TARNCLI\n" + struct.pack("<4I", 1, 1, 1, 0) + bytes(48)
CONFIGURATION = b"TNC1" + struct.pack("<3I", 8, 1, 8)
WINDOW = 8
UNSET_INFO = b"tFI1" + bytes(88)
COPY = bytes(range(16))
ENTRY_FAILED = 16  # the kind of a commit's report


class Refused(Exception):
    """What the server had to say against an item."""


def string(value):
    return struct.pack("<I", len(value)) + value


def file_token(path):
    return string(b"file") + string(path)


def agent_token(path):
    """A regular file without attributes."""
    return string(b"agent-item") + struct.pack("<II", 2, 1) + bytes(16) + string(path) + string(b"") + \
        struct.pack("<QQI", 0, 0, 0) + UNSET_INFO


def commit_token(entries):
    return string(b"agent-item") + struct.pack("<II", 2, 5) + COPY + string(b"") + string(b"") + \
        struct.pack("<QQI", 0, entries, 0) + UNSET_INFO


def batch_token(items, total):
    """`items`: name in the batch, path below the root and size of each."""
    listed = b"".join(string(name) + string(path) + struct.pack("<Q", size) for name, path, size in items)
    return string(b"BatchFileUploadToken") + struct.pack("<IQII", len(items), total, 0, 0) + listed


def expect(what, value, wanted):
    if value != wanted:
        raise AssertionError(f"{what} is {value!r} instead of {wanted!r}")


def reports_of(status):
    """Kind, entry, path and text of each report in the STATUS of an item that succeeded."""
    expect("the result", status[:8], bytes(8))
    reports, at = [], 12
    for _ in range(*struct.unpack_from("<I", status, 8)):
        kind, entry, length = struct.unpack_from("<IQI", status, at)
        path = status[at + 16:at + 16 + length]
        at += 16 + length
        length, = struct.unpack_from("<I", status, at)
        reports.append((kind, entry, path, status[at + 4:at + 4 + length]))
        at += 4 + length
    expect("the length of the status", at, len(status))
    return reports


class Client:
    def __init__(self, port):
        self.connection = socket.create_connection(("127.0.0.1", port), PATIENCE)
        self.items = 0
        self.send(PREAMBLE)
        expect("the magic", self.take(8), b"TARNSRV\n")
        expect("status and version", self.numbers("2I"), (0, 1))
        identifier, key = self.take(16), self.take(32)
        if identifier == bytes(16) or key == bytes(32):
            raise AssertionError("a session without identifier or key")
        expect("the limits", self.numbers("5I"), (1, 16 << 20, 1, 120, 0))
        expect("the text", self.string(), b"")

    def send(self, data):
        self.connection.sendall(data)

    def take(self, count):
        data = b""
        while len(data) < count:
            part = self.connection.recv(count - len(data))
            if not part:
                raise AssertionError(f"the server closed {count - len(data)} bytes too early")
            data += part
        return data

    def numbers(self, code):
        return struct.unpack("<" + code, self.take(struct.calcsize("<" + code)))

    def string(self):
        return self.take(self.numbers("I")[0])

    def acknowledgement(self):
        kind, = self.numbers("I")
        if kind != 0:
            raise Refused(kind, self.string().decode())

    def frame(self):
        """Kind, block field and payload of the next frame that is not BUSY."""
        while True:
            header = self.take(frames.HEADER.size)
            magic, kind, _, length, _, item, _, block, *_, checksum = frames.HEADER.unpack(header)
            payload = self.take(length)
            expect("the magic", magic, b"TBLK")
            expect("the item", item, self.items)
            expect("the checksum", checksum, frames.crc32c(header[:76] + bytes(4) + payload))
            if kind != frames.BUSY:
                return kind, block, payload

    def blocks(self, parts):
        """Sends the parts as blocks, those of zeroes as ZERO frames; never beyond the window."""
        limit, offset, kinds = WINDOW, 0, {False: frames.DATA, True: frames.ZERO}
        for number, part in enumerate(parts):
            while number >= limit:
                kind, limit, payload = self.frame()
                if kind != frames.CREDIT:
                    raise AssertionError(f"a frame of type {kind} before the end: {payload!r}")
            is_zero = part == bytes(len(part))
            self.send(frames.frame(kinds[is_zero], self.items, b"" if is_zero else part, len(part), offset, number))
            offset += len(part)

    def status(self):
        """The receiver's verdict, behind a CREDIT for each block."""
        while True:
            kind, _, payload = self.frame()
            if kind == frames.STATUS:
                return payload
            expect("the frame", kind, frames.CREDIT)

    def upload(self, token, parts, overwrite=0, spoil=False):
        """Returns what was reported of an item that succeeded."""
        content = b"".join(parts)
        self.send(struct.pack("<I", 5) + token + struct.pack("<QIII", len(content), 0, overwrite, BLOCK_SIZE))
        self.acknowledgement()
        expect("the wish for keysets", self.numbers("I"), (0,))
        self.send(CONFIGURATION)
        expect("the configuration", self.take(16), CONFIGURATION)
        self.blocks(parts)
        end = frames.end_payload(content, len(parts))
        self.send(frames.frame(frames.END, self.items, end[:-17] + b"\x55" + end[-16:] if spoil else end))
        status = self.status()
        self.items += 1
        self.acknowledgement()
        return reports_of(status)

    def end(self):
        self.send(struct.pack("<I", 2))
        expect("what follows the session", self.connection.recv(1), b"")
        self.connection.close()


def refusal(action):
    try:
        action()
    except Refused as refused:
        return refused.args
    raise AssertionError("nothing was refused")


def upload_items(port, root):
    """Several items in one session: each kind of token, many blocks, zeroes, no bytes at all."""
    items = {
        "three": (file_token, [b"abc"]),
        "empty": (agent_token, []),
        "zeroes": (agent_token, [b"a", bytes(7), b"bcd", bytes(1)]),
        "blocks": (agent_token, [bytes([65 + number]) for number in range(16)]),
        "file": (file_token, [b"0123", b"4567", b"89"]),
    }
    client = Client(port)
    for name, (token, parts) in items.items():
        expect("the reports", client.upload(token(name.encode()), parts), [])
    client.end()
    for name, (_, parts) in items.items():
        expect(f"the file {name}", (root / name).read_bytes(), b"".join(parts))


def upload_over(port, root):
    """What is there stays unless it is to be replaced."""
    kind, _ = refusal(lambda: Client(port).upload(agent_token(b"three"), [b"other"]))
    expect("the answer", kind, 2)
    expect("the file", (root / "three").read_bytes(), b"abc")
    client = Client(port)
    client.upload(agent_token(b"three"), [b"other"], overwrite=1)
    client.end()
    expect("the file", (root / "three").read_bytes(), b"other")


def upload_spoilt(port, root):
    """A wrong digest leaves nothing behind."""
    kind, text = refusal(lambda: Client(port).upload(agent_token(b"spoilt"), [b"abc"], spoil=True))
    expect("the answer", (kind, text), (1, "Unable to receive file."))
    expect("the file", (root / "spoilt").exists(), False)


def batch_entries():
    """Path, size and the commands under the entry's name: two files, a link, a directory, and a path that leads out."""
    def info(kind, size=0, mode=0o640):
        return blob.file_info(kind, size, (b"", os.getuid()), (b"", os.getgid()), mode, ((0, 0), (1_000_000_000, 5), (0, 0)))

    def content(kind, size, writes):
        return lambda name: blob.create_file(name, 1) + b"".join(blob.write_file(b"", *write) for write in writes) + \
            blob.set_metadata(b"", info(kind, size))

    def directory(name):
        return blob.create_dir(name) + blob.set_metadata(b"", info(blob.DIRECTORY, mode=0o750))

    return [
        (b"d/whole", 5000, content(blob.REGULAR, 5000, [(0, b"x" * 5000)])),
        (b"d/holes", 9000, content(blob.REGULAR, 9000, [(4096, b"in the middle")])),
        (b"../out", 3, content(blob.REGULAR, 3, [(0, b"abc")])),
        (b"d/link", 5, content(blob.SYMLINK, 5, [(0, b"whole")])),
        (b"d", 0, directory),
    ]


def upload_batch(port, root):
    """A batch and its commit: everything but the entry that must fail is in its place."""
    entries = [(b"%s/%d" % (COPY.hex().encode(), number), *entry) for number, entry in enumerate(batch_entries(), 1)]
    payload = b"".join(commands(name) for name, _, _, commands in entries)
    content = blob.frame(payload)
    parts = [content[at:at + BLOCK_SIZE] for at in range(0, len(content), BLOCK_SIZE)]
    client = Client(port)
    token = batch_token([(name, path, size) for name, path, size, _ in entries], len(payload))
    expect("the reports of the batch", client.upload(token, parts), [])
    expect("what is to be seen before the commit", (root / "d").exists(), False)
    reports = client.upload(commit_token(len(entries)), [])
    client.end()
    expect("the reports of the commit", [report[:2] for report in reports], [(ENTRY_FAILED, 2)])
    expect("the whole file", (root / "d/whole").read_bytes(), b"x" * 5000)
    expect("the file with holes", (root / "d/holes").read_bytes(), bytes(4096) + b"in the middle" + bytes(4891))
    expect("the link", os.readlink(root / "d/link"), "whole")
    expect("the directory", sorted(os.listdir(root / "d")), ["holes", "link", "whole"])
    for path, mode in (("d", 0o750), ("d/whole", 0o640), ("d/holes", 0o640)):
        found = (root / path).stat()
        expect(f"mode and time of {path}", (found.st_mode & 0o7777, found.st_mtime_ns), (mode, 1_000_000_000_000_000_005))


def play_example(port, root):
    """The session of the page: what its client sends is answered as the page says."""
    page = (Path(__file__).parents[2] / "docs/protocol.md").read_text(encoding="utf-8")
    blocks = {section: b"".join(lines) for section, lines in examples(page)}
    with socket.create_connection(("127.0.0.1", port), PATIENCE) as connection:
        connection.sendall(blocks["A session from its client"])
        answer = b""
        while part := connection.recv(4096):
            answer += part
    wanted = blocks["A session from its server"]
    expect("the answer", answer[:16] + answer[64:], wanted[:16] + wanted[64:])  # without identifier and key
    expect("the file", (root / "a").read_bytes(), b"abc")


def listening_port(server):
    """The port that the server tells on its output."""
    for line in server.stdout:
        found = re.fullmatch(r"listening on 127\.0\.0\.1:(\d+)\n", line)
        if found:
            return int(found[1])
    raise AssertionError("the server does not listen")


def main(tarn):
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        command = [tarn, "--quiet", "serve", "--plaintext", "--listen", "127.0.0.1:0", "--root", folder]
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as server:
            try:
                port = listening_port(server)
                for scene in (upload_items, upload_over, upload_spoilt, upload_batch, play_example):
                    scene(port, root)
                    print(f"{scene.__name__}: good")
            finally:
                server.terminate()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
