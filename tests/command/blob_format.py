"""Blob files as docs/formats.md describes them, and nothing else: frames, commands, attributes, written and read.

Nothing here comes from the program under test: the checksum, the LZ4 blocks and the records are this module's own.
Blocks are written without any compression, as literals; every block that the format allows is read.
"""
import stat
import struct
from dataclasses import dataclass, field

CREATE_DIR, CREATE_FILE, WRITE_FILE, SET_METADATA = range(1, 5)

MAGIC = 0xF800000F
CHECKED = 0x08000000  # the flag for "the checksum is there"
FRAME = struct.Struct("<3I")
HEADER = struct.Struct("<IIH")

UNSET, REGULAR, DIRECTORY, SYMLINK = range(4)


class Fault(Exception):
    """What is no blob file."""


def _table():
    for value in range(256):
        for _ in range(8):
            value = value >> 1 ^ (0x82F63B78 if value & 1 else 0)
        yield value


TABLE = tuple(_table())


def crc32c(data):
    """The Castagnoli polynomial, reflected, all ones at the start and inverted at the end."""
    value = 0xFFFFFFFF
    for byte in data:
        value = value >> 8 ^ TABLE[(value ^ byte) & 0xFF]
    return value ^ 0xFFFFFFFF


# LZ4 blocks

def _length_bytes(rest):
    """What follows a length of 15 or more whose first 15 are in the token."""
    return b"\xff" * (rest // 255) + bytes([rest % 255])


def literal_block(data):
    """`data` as one sequence that is nothing but literals."""
    if len(data) < 15:
        return bytes([len(data) << 4]) + data
    return b"\xf0" + _length_bytes(len(data) - 15) + data


class _Block:
    def __init__(self, data):
        self.data = data
        self.position = 0

    def take(self, count):
        if count > len(self.data) - self.position:
            raise Fault(f"the block ends {count - (len(self.data) - self.position)} bytes too early")
        self.position += count
        return self.data[self.position - count:self.position]

    def length(self, nibble):
        total = nibble
        while nibble == 15:
            more = self.take(1)[0]
            total += more
            if more != 255:
                break
        return total


def unpack_block(data):
    """The content of any LZ4 block: literals, and matches that may overlap what they make."""
    block, out = _Block(data), bytearray()
    while True:
        token = block.take(1)[0]
        out += block.take(block.length(token >> 4))
        if block.position == len(data):
            if token & 15:
                raise Fault("the last sequence has a match")
            return bytes(out)
        offset = struct.unpack("<H", block.take(2))[0]
        length = block.length(token & 15) + 4
        if not 1 <= offset <= len(out):
            raise Fault(f"a match {offset} bytes back, {len(out)} are there")
        while length:
            part = out[-offset:][:length]
            out += part
            length -= len(part)


# Frames

def frame(payload, magic=MAGIC, checksum=None, length=None, block=None):
    """A blob file with this payload; what is given replaces what would be right."""
    return FRAME.pack(magic, crc32c(payload) if checksum is None else checksum,
                      len(payload) if length is None else length) + (literal_block(payload) if block is None else block)


def payload_of(data):
    """The payload of a blob file, which must have a good checksum."""
    if len(data) < FRAME.size:
        raise Fault(f"{len(data)} bytes are no frame")
    magic, checksum, length = FRAME.unpack(data[:FRAME.size])
    payload = unpack_block(data[FRAME.size:])
    if magic != MAGIC or len(payload) != length or crc32c(payload) != checksum:
        raise Fault(f"magic {magic:08x}, length {length}, checksum {checksum:08x} over {len(payload)} bytes")
    return payload


# Commands

def command(kind, path, body, total=None, path_length=None):
    """One command; an empty path keeps that of the command before. What is given replaces what would be right."""
    return HEADER.pack(HEADER.size + len(path) + len(body) if total is None else total, kind,
                       len(path) if path_length is None else path_length) + path + body


def create_dir(path, overwrite=0):
    return command(CREATE_DIR, path, bytes([overwrite]))


def create_file(path, overwrite=0):
    return command(CREATE_FILE, path, bytes([overwrite]))


def write_file(path, offset, data, length=None):
    return command(WRITE_FILE, path, struct.pack("<QI", offset, len(data) if length is None else length) + data)


def set_metadata(path, info, length=None):
    return command(SET_METADATA, path, struct.pack("<I", len(info) if length is None else length) + info)


@dataclass
class Command:
    """A command as it stands; `path` is that of an earlier one where it carries none."""
    kind: int
    path: bytes
    carries_path: bool
    body: bytes


def commands(payload):
    """The commands of a payload, from its first byte to its last."""
    found, offset, path = [], 0, b""
    while offset < len(payload):
        if len(payload) - offset < HEADER.size:
            raise Fault(f"{len(payload) - offset} bytes are left over at {offset}")
        total, kind, path_length = HEADER.unpack_from(payload, offset)
        if total < HEADER.size + path_length or total > len(payload) - offset:
            raise Fault(f"a command of {total} bytes at {offset}")
        begin = offset + HEADER.size + path_length
        carried = payload[offset + HEADER.size:begin]
        path = carried or path
        found.append(Command(kind, path, bool(carried), payload[begin:offset + total]))
        offset += total
    return found


def flag_of(body):
    if body not in (b"\0", b"\1"):
        raise Fault(f"{body!r} is no flag")
    return body == b"\1"


def write_of(body):
    """Offset and data of a write."""
    offset, length = struct.unpack_from("<QI", body)
    if len(body) != 12 + length:
        raise Fault(f"a write of {length} bytes with {len(body) - 12}")
    return offset, body[12:]


# Attributes

def text(data):
    return struct.pack("<I", len(data)) + data


def file_info(kind=UNSET, size=0, owner=(b"", 0), group=(b"", 0), mode=0, times=((0, 0),) * 3, attributes=()):
    """A file info; `times`: of access, modification and change, as seconds and nanoseconds."""
    moments = b"".join(struct.pack("<qI", *moment) for moment in times)
    extended = b"".join(text(name) + text(value) for name, value in attributes)
    return b"tFI1" + struct.pack("<IQ", kind, size) + text(owner[0]) + struct.pack("<I", owner[1]) + text(group[0]) + \
        struct.pack("<II", group[1], mode) + moments + bytes(16) + struct.pack("<I", len(attributes)) + extended


@dataclass
class Info:
    kind: int
    size: int
    owner: int
    group: int
    mode: int
    modified: int  # nanoseconds since 1970
    attributes: dict = field(default_factory=dict)


class _Record:
    def __init__(self, data):
        self.data = data
        self.position = 0

    def numbers(self, code):
        size = struct.calcsize("<" + code)
        return struct.unpack("<" + code, self.take(size))

    def take(self, count):
        if count > len(self.data) - self.position:
            raise Fault("a file info ends too early")
        self.position += count
        return self.data[self.position - count:self.position]

    def text(self):
        return self.take(self.numbers("I")[0])


def info_of(body):
    """The file info of a command that sets metadata."""
    record = _Record(body)
    length, = record.numbers("I")
    if length != len(body) - 4 or record.take(4) != b"tFI1":
        raise Fault(f"no file info of {length} bytes")
    kind, size = record.numbers("IQ")
    record.text()
    owner, = record.numbers("I")
    record.text()
    group, mode = record.numbers("II")
    _, _, seconds, nanoseconds, _, _ = record.numbers("qIqIqI")
    record.numbers("I")
    for _ in range(3):
        record.text()
    attributes = {}
    for _ in range(record.numbers("I")[0]):
        name = record.text()
        attributes[name] = record.text()
    if record.position != len(body):
        raise Fault("a file info with more behind it")
    return Info(kind, size, owner, group, mode, seconds * 1_000_000_000 + nanoseconds, attributes)


# What blob files make

@dataclass
class Made:
    """An object that commands make where nothing was."""
    is_directory: bool
    content: bytearray = field(default_factory=bytearray)
    info: Info = None


def _write(made, offset, data):
    if len(made.content) < offset + len(data):
        made.content.extend(bytes(offset + len(data) - len(made.content)))
    made.content[offset:offset + len(data)] = data


def replay(payloads):
    """What the payloads make, in their order, by path. A command that could not work on an empty disk is a fault."""
    made = {}
    for payload in payloads:
        for step in commands(payload):
            if step.kind in (CREATE_DIR, CREATE_FILE):
                if step.path in made or flag_of(step.body) not in (False, True):
                    raise Fault(f"{step.path!r} is made twice")
                made[step.path] = Made(step.kind == CREATE_DIR)
            elif step.path not in made:
                raise Fault(f"{step.path!r} is not there yet")
            elif step.kind == WRITE_FILE and not made[step.path].is_directory:
                _write(made[step.path], *write_of(step.body))
            elif step.kind == SET_METADATA:
                made[step.path].info = info_of(step.body)
            else:
                raise Fault(f"command {step.kind} on {step.path!r}")
    return made


def kind_of(mode):
    """The type of a file info for what stat(2) tells."""
    return {stat.S_IFREG: REGULAR, stat.S_IFDIR: DIRECTORY, stat.S_IFLNK: SYMLINK}[stat.S_IFMT(mode)]
