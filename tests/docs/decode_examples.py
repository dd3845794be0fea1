#!/usr/bin/env python3
"""Decodes the examples of the documents with nothing but what the documents say.

Usage: decode_examples.py ROOT

Every `hex` block of docs/formats.md and docs/protocol.md is an example of the section that it stands in. DOCUMENTS says
how each is built up and what it means; a block that is not listed there, a listed one that is missing, a byte too many
or too few, a value that differs and a line that ends inside a value are all faults. In the end every byte of every
example is changed once, and each change must be noticed.
"""
import struct
import sys
from pathlib import Path

import frames


class Fault(Exception):
    pass


class Reader:
    """Values from bytes, as "Binary encoding" of docs/formats.md defines them; remembers where values end."""

    def __init__(self, data):
        self.data = data
        self.position = 0
        self.ends = set()

    def take(self, count):
        if count > len(self.data) - self.position:
            raise Fault(f"{count} bytes wanted at {self.position}, {len(self.data) - self.position} are there")
        self.position += count
        return self.data[self.position - count:self.position]

    def end(self, value):
        self.ends.add(self.position)
        return value

    def number(self, code):
        return self.end(struct.unpack("<" + code, self.take(struct.calcsize("<" + code)))[0])

    def u8(self):
        return self.number("B")

    def u16(self):
        return self.number("H")

    def u32(self):
        return self.number("I")

    def u64(self):
        return self.number("Q")

    def i64(self):
        return self.number("q")

    def flag(self):
        value = self.u32()
        if value > 1:
            raise Fault(f"flag {value}: true is written as 1")
        return value == 1

    def string(self):
        length = struct.unpack("<I", self.take(4))[0]
        return self.end(self.take(length))

    def raw(self, count):
        return self.end(self.take(count))


def acknowledgement(reader):
    kind = reader.u32()
    if kind > 2:
        raise Fault(f"acknowledgement of kind {kind}")
    return [kind] if kind == 0 else [kind, reader.string()]


def moment(reader):
    return (reader.i64(), reader.u32())


def file_info(reader):
    info = {
        "magic": reader.raw(4),
        "type": reader.u32(),
        "size": reader.u64(),
        "owner": (reader.string(), reader.u32()),
        "group": (reader.string(), reader.u32()),
        "mode": reader.u32(),
        "accessed": moment(reader),
        "modified": moment(reader),
        "changed": moment(reader),
        "extended": reader.flag(),
        "access list": reader.string(),
        "default list": reader.string(),
        "nfs4": reader.string(),
    }
    count = reader.u32()
    if info["magic"] != b"tFI1" or info["type"] > 7 or info["mode"] > 0o7777 or count > 1024:
        raise Fault("file info out of its limits")
    info["attributes"] = [(reader.string(), reader.string()) for _ in range(count)]
    return info


def symbolic_link(reader):
    return [reader.u32(), reader.raw(reader.u32())]


def agent_item(reader):
    values = [reader.u32(), reader.u32(), reader.raw(16), reader.string(), reader.string(), reader.u64(), reader.u64(),
              reader.u32()]
    if values[0] != 2 or not 1 <= values[1] <= 5 or values[7] > 7:
        raise Fault("agent item out of its limits")
    return values + [file_info(reader)]


def journal_line(reader):
    check, text = reader.raw(9), b""
    while not text.endswith(b"\n"):
        text += reader.raw(1)
    if check != b"%08x " % frames.crc32c(text[:-1]):
        raise Fault("a line of the journal with a wrong checksum")
    return text[:-1].split(b" ")


def literals(reader, count):
    """The start of an LZ4 block that is a single run of literals."""
    token = reader.take(1)[0]
    length = token >> 4
    more = 255 if length == 15 else 0
    while more == 255:
        more = reader.take(1)[0]
        length += more
    if length != count or token & 15:
        raise Fault(f"a block of {length} literals for {count} bytes")
    reader.end(None)


def blob_command(reader):
    """Kind, path and body of a command whose length is right."""
    begin = reader.position
    total, kind, path_length = struct.unpack("<IIH", reader.take(10))
    values = [kind, reader.raw(path_length) if path_length else reader.end(b"")]
    if kind in (1, 2):
        values.append(reader.u8())
    elif kind == 3:
        values += [reader.u64(), reader.string()]
    elif kind == 4:
        length, start = reader.u32(), reader.position
        values.append(file_info(reader))
        if reader.position - start != length:
            raise Fault(f"a file info of {reader.position - start} bytes with the length {length}")
    else:
        raise Fault(f"command {kind}")
    if reader.position - begin != total:
        raise Fault(f"a command of {reader.position - begin} bytes with the length {total}")
    return values


def blob_file(reader):
    magic, checksum, length = reader.u32(), reader.u32(), reader.u32()
    literals(reader, length)
    begin, commands = reader.position, []
    while reader.position < len(reader.data):
        commands.append(blob_command(reader))
    if magic != 0xF800000F or checksum != frames.crc32c(reader.data[begin:]):
        raise Fault(f"magic {magic:x}, checksum {checksum:x}")
    return commands


def string_over_lines(reader):
    """A string that may be too long for a line."""
    return b"".join(reader.raw(1) for _ in range(reader.u32()))


def batch_token(reader):
    count = reader.u32()
    values = [reader.u64(), reader.flag(), reader.flag()]
    return values + [[string_over_lines(reader), reader.string(), reader.u64()] for _ in range(count)]


def paths(reader):
    return [reader.string() for _ in range(reader.u32())]


def token_item(reader, overwrite, permissions):
    values = [reader.u32(), reader.string(), reader.string(), reader.u64(), reader.flag()]
    if overwrite:
        values.append(reader.u32())
    values.append(reader.u32())
    if permissions:
        values.append(file_info(reader))
    return values


def file(reader, permissions):
    values = [reader.u32(), reader.string(), reader.u64(), reader.flag(), reader.u32()]
    if permissions:
        values.append(file_info(reader))
    return values


MIB = 1 << 20

ANNS_FILE = {
    "magic": b"tFI1", "type": 1, "size": 5, "owner": (b"ann", 1000), "group": (b"staff", 50), "mode": 0o644,
    "accessed": (0, 0), "modified": (0, 0), "changed": (0, 0), "extended": False, "access list": b"",
    "default list": b"", "nfs4": b"", "attributes": [],
}

UNSET_FILE = {
    "magic": b"tFI1", "type": 0, "size": 0, "owner": (b"", 0), "group": (b"", 0), "mode": 0,
    "accessed": (0, 0), "modified": (0, 0), "changed": (0, 0), "extended": False, "access list": b"",
    "default list": b"", "nfs4": b"", "attributes": [],
}

# Section -> how its example is read, and what must come out.
FORMATS = {
    "Binary encoding": (lambda r: [r.u32(), r.flag(), r.string()], [258, True, b"abc"]),
    "Acknowledgement": (acknowledgement, [1, b"no"]),
    "File moniker": (lambda r: r.string(), b"/tmp/a"),
    "File info": (file_info, {
        "magic": b"tFI1", "type": 1, "size": 5, "owner": (b"root", 0), "group": (b"adm", 4), "mode": 0o644,
        "accessed": (1700000000, 1), "modified": (-1, 999999999), "changed": (0, 0), "extended": False,
        "access list": b"", "default list": b"", "nfs4": b"\x01\x02", "attributes": [(b"user.a", b"x\0")],
    }),
    "Symbolic link": (symbolic_link, [1, b"/etc"]),
    "Agent item": (agent_item, [2, 3, bytes.fromhex("00112233445566778899aabbccddeeff"), b"etc/motd", b"../run/motd", 0,
                                8, 1, UNSET_FILE]),
    "Blob file": (blob_file, [[1, b"/d", 0], [2, b"/d/f", 0], [3, b"", 0, b"abc"], [4, b"", {
        **UNSET_FILE, "type": 1, "size": 3, "owner": (b"", 1000), "group": (b"", 50), "mode": 0o644,
        "modified": (1, 2)}]]),
    "Batch token": (batch_token, [159, False, True, [b"00112233445566778899aabbccddeeff/7", b"d", 0],
                                  [b"00112233445566778899aabbccddeeff/8", b"d/f", 3]]),
    "Staging journal": (lambda r: [journal_line(r), journal_line(r)], [
        [b"run", b"00112233445566778899aabbccddeeff"], [b"partial", b"ffeeddccbbaa99887766554433221100"]]),
}

def preamble(reader):
    return [reader.raw(8), [reader.u32() for _ in range(4)], reader.raw(16), reader.raw(32)]


def answer(reader):
    return [reader.raw(8), [reader.u32() for _ in range(2)], reader.raw(16), reader.raw(32),
            [reader.u32() for _ in range(5)], reader.string()]


def network_configuration(reader):
    values = [reader.raw(4), reader.u32(), reader.u32(), reader.u32()]
    if values[1] != 8:
        raise Fault("another length than that of version 1")
    return values


def status(reader):
    values = [reader.u32(), reader.string()]
    return values + [[reader.u32(), reader.u64(), reader.string(), reader.string()] for _ in range(reader.u32())]


def end(reader):
    return [reader.u64(), reader.u64(), reader.u32(), reader.u32(), reader.raw(16), reader.raw(16)]


PAYLOADS = {frames.END: end, frames.STATUS: status}


def frame(reader):
    """The fields that differ from what "fields without a use" have, the payload and a good checksum."""
    begin = reader.position
    magic, kind, flags = reader.raw(4), reader.u16(), reader.u16()
    length, raw = reader.u32(), reader.u32()
    values = [kind, raw, reader.u64(), reader.u64(), reader.u64()]
    transform, nonce, tag, reserved = reader.u32(), reader.raw(12), reader.raw(16), reader.u32()
    checksum = reader.u32()
    if (magic, flags, transform, nonce, tag, reserved) != (b"TBLK", 0, frames.AS_IT_IS, bytes(12), bytes(16), 0):
        raise Fault("a frame with more than the example has")
    payload = reader.position
    values.append(PAYLOADS.get(kind, lambda rest: rest.raw(length))(reader))
    if reader.position - payload != length:
        raise Fault(f"a payload of {reader.position - payload} bytes with the length {length}")
    if checksum != frames.crc32c(reader.data[begin:begin + 76] + bytes(4) + reader.data[payload:reader.position]):
        raise Fault("a wrong checksum")
    return values


def session_of_client(reader):
    values = [reader.raw(8), [reader.u32() for _ in range(4)], [reader.raw(16) for _ in range(3)]]
    values += [token_item(reader, True, False), network_configuration(reader), frame(reader), frame(reader)]
    return values + [reader.u32()]


def session_of_server(reader):
    values = [reader.raw(8), [reader.u32() for _ in range(2)], [reader.raw(16) for _ in range(3)]]
    values += [[reader.u32() for _ in range(5)], reader.string(), acknowledgement(reader), reader.u32()]
    return values + [network_configuration(reader), frame(reader), frame(reader), acknowledgement(reader)]


def answered(read):
    """A request's answer, `read` only when it is done."""
    def decode(reader):
        status = reader.u32()
        if status == 3:
            return [3] + decode(reader)
        if status > 3:
            raise Fault(f"status {status}")
        return [0, read(reader)] if status == 0 else [status, reader.string()]
    return decode


def finding(reader):
    kind = reader.u32()
    if kind > 2:
        raise Fault(f"finding {kind}")
    if kind == 2:
        return reader.string()
    return None if kind == 0 else [
        reader.u32(), reader.u32(), reader.u64(), moment(reader), (reader.string(), reader.u32()),
        (reader.string(), reader.u32()), reader.u64(), reader.u64(), reader.u64(), reader.string()]


def page(reader):
    return [(reader.string(), finding(reader)) for _ in range(reader.u32())]


def told(reader):
    """A size and a digest, if there are any."""
    return [reader.u64(), reader.raw(16)] if reader.flag() else None


def query(*read):
    """A request: its code and what follows; the last is the answer."""
    return lambda reader: [reader.u32()] + [part(reader) for part in read]


def nothing(_):
    return None


text, number = Reader.string, Reader.u64


def item_sent_back(reader):
    values = [acknowledgement(reader), [[reader.string(), reader.string()] for _ in range(reader.u32())]]
    values += [reader.u32(), reader.string(), agent_item(reader), reader.u64(), reader.flag(), reader.u32(), reader.u32()]
    return values + [network_configuration(reader), frame(reader), reader.u32(), reader.flag()]


ONE_STREAM = [b"TNC1", 8, 1, 8]

ANNS_LINK = {**ANNS_FILE, "type": 3, "size": 1, "mode": 0o777}

PROTOCOL = {
    "Preamble": (preamble, [b"TARNCLI\n", [1, 1, 1, 0], bytes(16), bytes(32)]),
    "Answer to the preamble": (answer, [b"TARNSRV\n", [3, 1], b"\xa1" * 16, b"\xb2" * 32, [1, 16 << 20, 1, 120, 0],
                                        b"Full"]),
    "Session": (lambda r: r.u32(), 2),
    "Acknowledgements": (acknowledgement, [2, b"/a is there"]),
    "Item": (lambda r: token_item(r, True, False), [5, b"file", b"/srv/a", 5, False, 1, MIB]),
    "Item with permissions": (lambda r: token_item(r, True, True),
                              [6, b"file", b"/srv/a", 5, False, 0, MIB, ANNS_FILE]),
    "Item by the HVIR path": (lambda r: token_item(r, False, False), [8, b"file", b"/srv/a", 5, False, MIB]),
    "File": (lambda r: file(r, False), [1, b"/srv/a", 5, True, MIB]),
    "File with permissions": (lambda r: file(r, True), [4, b"/srv/a", 5, False, MIB, ANNS_FILE]),
    "Existing files": (lambda r: [r.u32(), paths(r)], [9, [b"/srv/a", b"/srv/b"]]),
    "List of existing files": (lambda r: [acknowledgement(r), paths(r)], [[0], [b"/srv/b"]]),
    "Symbolic link": (lambda r: [r.u32(), r.string(), r.string()], [10, b"/srv/l", b"../a"]),
    "Disks": (lambda r: [r.u32(), r.string(), r.string(), r.string(), r.u64(), r.u32()],
              [7, b"/srv/d", b"/srv/e", b"/srv/c", 1 << 30, MIB]),
    "Network configuration": (network_configuration, ONE_STREAM),
    "DATA frame": (frame, [frames.DATA, 3, 2, 4096, 1, b"abc"]),
    "ZERO frame": (frame, [frames.ZERO, 64 * MIB, 2, 8192, 2, b""]),
    "END frame": (frame, [frames.END, 0, 2, 0, 0, [3, 1, 1, 0, b"\x11" * 16, bytes(16)]]),
    "ABORT frame": (frame, [frames.ABORT, 0, 2, 0, 0, b"oops"]),
    "BUSY frame": (frame, [frames.BUSY, 0, 2, 0, 0, b""]),
    "CREDIT frame": (frame, [frames.CREDIT, 0, 2, 0, 9, b""]),
    "STATUS frame": (frame, [frames.STATUS, 0, 2, 0, 0, [1, b"no", [7, 3, b"a", b"b"]]]),
    "Query service": (lambda r: r.u32(), 2),
    "Answers of the query service": (answered(nothing), [3, 1, b"no"]),
    "Findings": (finding, [3, 0o777, 4, (-1, 999999999), (b"ann", 1000), (b"staff", 50), 2049, 77, 1, b"../a"]),
    "Query: abilities": (query(answered(Reader.flag)), [1, [0, True]]),
    "Query: what is there": (
        query(paths, answered(lambda r: [finding(r) for _ in range(r.u32())])),
        [3, [b"a", b"../b"], [0, [None, b'Path [../b] is refused: it has a component "..".']]]),
    "Query: list": (query(text, answered(page), answered(page)), [4, b"d", [0, [(b"a", b"no"), (b"b", b"no")]],
                                                                  [0, []]]),
    "Query: attributes": (query(text, answered(file_info)), [5, b"a", [0, {
        "magic": b"tFI1", "type": 1, "size": 3, "owner": (b"", 1000), "group": (b"", 50), "mode": 0o644,
        "accessed": (3, 4), "modified": (1, 2), "changed": (5, 6), "extended": False, "access list": b"",
        "default list": b"", "nfs4": b"", "attributes": []}]]),
    "Query: digest": (query(text, answered(told)), [6, b"a", [0, [3, frames.xxh3_128(b"abc")]]]),
    "Query: what is kept": (query(text, number, moment, answered(told)),
                            [7, b"a", 9, (1, 2), [0, [3, frames.xxh3_128(b"abc")]]]),
    "Query: remove": (query(text, answered(nothing)), [8, b"a", [0, None]]),
    "Query: make a directory": (query(text, answered(nothing)), [9, b"a", [2, b"[a] exists already."]]),
    "Query: move": (query(text, text, Reader.flag, answered(nothing)), [10, b"a", b"b", True, [0, None]]),
    "A session from its client": (session_of_client, [
        b"TARNCLI\n", [1, 1, 1, 0], [bytes(16)] * 3, [5, b"file", b"a", 3, False, 1, 4096], ONE_STREAM,
        [frames.DATA, 3, 0, 0, 0, b"abc"],
        [frames.END, 0, 0, 0, 0, [3, 1, 1, 0, frames.xxh3_128(b"abc"), bytes(16)]], 2]),
    "A session from its server": (session_of_server, [
        b"TARNSRV\n", [0, 1], [b"\xa1" * 16, b"\xb2" * 16, b"\xb2" * 16], [1, 16 << 20, 1, 120, 0], b"", [0], 0,
        ONE_STREAM, [frames.CREDIT, 0, 0, 0, 9, b""], [frames.STATUS, 0, 0, 0, 0, [0, b""]], [0]]),
    "Send service": (lambda r: [r.u32(), r.string(), r.u64(), r.u32(), r.u32()], [1, b"a/b", 7, 1 << 16, 1]),
    "Item that is sent back": (item_sent_back, [
        [0], [[b"l", b"no"]], 5, b"agent-item", [2, 3, bytes(16), b"l", b"a", 0, 0, 0, ANNS_LINK], 0, False, 0, 4096,
        ONE_STREAM, [frames.END, 0, 0, 0, 0, [0, 0, 1, 0, frames.xxh3_128(b""), bytes(16)]], 2, False]),
}

DOCUMENTS = {"docs/formats.md": FORMATS, "docs/protocol.md": PROTOCOL}


def examples(text):
    """Yields (section, lines of bytes) of each hex block."""
    section = None
    lines = None
    for line in text.splitlines():
        if lines is not None:
            if line == "```":
                yield section, lines
                lines = None
            else:
                lines.append(bytes.fromhex(line.split(";")[0]))
        elif line.startswith("## "):
            section = line[3:]
        elif line == "```hex":
            lines = []


def check(example, decode, expected):
    """Raises Fault unless the lines are exactly the expected values."""
    reader = Reader(b"".join(example))
    value = decode(reader)
    if reader.position != len(reader.data):
        raise Fault(f"{len(reader.data) - reader.position} bytes are left over")
    if value != expected:
        raise Fault(f"{value!r} instead of {expected!r}")
    position = 0
    for number, line in enumerate(example, 1):
        position += len(line)
        if position not in reader.ends:
            raise Fault(f"line {number} ends inside a value")


def notices(example, decode, expected):
    """Whether every change of one byte is a fault."""
    data = b"".join(example)
    for position in range(len(data)):
        changed = bytearray(data)
        changed[position] ^= 0x41
        try:
            check([bytes(changed)], decode, expected)
        except Fault:
            continue
        return False
    return True


def check_document(text, sections):
    """Returns the faults of one document."""
    faults = []
    seen = set()
    for section, example in examples(text):
        if section not in sections:
            faults.append(f"{section}: nobody can decode this example")
            continue
        if section in seen:
            faults.append(f"{section}: more than one example")
            continue
        seen.add(section)
        try:
            check(example, *sections[section])
            if not notices(example, *sections[section]):
                faults.append(f"{section}: a changed byte goes unnoticed")
        except Fault as fault:
            faults.append(f"{section}: {fault}")
    faults += [f"{section}: there is no example" for section in sections if section not in seen]
    return faults


def main(root):
    faults = [f"{name}: {fault}" for name, sections in DOCUMENTS.items()
              for fault in check_document((Path(root) / name).read_text(encoding="utf-8"), sections)]
    for fault in faults:
        print(fault)
    if not faults:
        print(f"{sum(map(len, DOCUMENTS.values()))} examples decoded")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
