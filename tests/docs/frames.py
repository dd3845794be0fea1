"""The block stream of docs/protocol.md, for the programs beside it: checksum and frames."""
import struct

from xxh3 import xxh3_128

DATA, ZERO, END, ABORT, BUSY, CREDIT, STATUS = range(1, 8)
HEADER = struct.Struct("<4sHHIIQQQI12s16sII")
AS_IT_IS = 0xFFFFFFFF


def crc32c(data):
    """The Castagnoli polynomial, reflected, all ones at the start and inverted at the end."""
    value = 0xFFFFFFFF
    for byte in data:
        value ^= byte
        for _ in range(8):
            value = value >> 1 ^ (0x82F63B78 if value & 1 else 0)
    return value ^ 0xFFFFFFFF


def frame(kind, item=0, payload=b"", raw=0, offset=0, block=0):
    """A frame of uncompressed, unencrypted content."""
    fields = [b"TBLK", kind, 0, len(payload), raw, item, offset, block, AS_IT_IS, bytes(12), bytes(16), 0]
    return HEADER.pack(*fields, crc32c(HEADER.pack(*fields, 0) + payload)) + payload


def end_payload(content, blocks):
    return struct.pack("<QQII", len(content), blocks, 1, 0) + xxh3_128(content) + bytes(16)
