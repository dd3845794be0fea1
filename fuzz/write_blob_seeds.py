#!/usr/bin/env python3
"""Writes the seeds of the targets for blob files and batch tokens: one of each form, and each way to be wrong.

Usage: write_blob_seeds.py     (writes into seeds/ beside this file; what a fuzzer found lies there, too, and stays)
The forms are those of docs/formats.md.
"""
import struct
from pathlib import Path

SEEDS = Path(__file__).parent / "seeds"

CREATE_DIR, CREATE_FILE, WRITE_FILE, SET_METADATA = 1, 2, 3, 4
FILE_INFO = (SEEDS / "file_info" / "documented_example").read_bytes()


def command(kind, path, body, length=None):
    """A command; an empty path keeps that of the command before."""
    header = struct.pack("<IIH", 10 + len(path) + len(body) if length is None else length, kind, len(path))
    return header + path + body


def write(path, offset, data, length=None):
    return command(WRITE_FILE, path, struct.pack("<QI", offset, len(data) if length is None else length) + data)


def metadata(path, info, length=None):
    return command(SET_METADATA, path, struct.pack("<I", len(info) if length is None else length) + info)


FILE = command(CREATE_FILE, b"/f", b"\1")
STREAMS = {
    "everything": command(CREATE_DIR, b"/d", b"\0") + command(CREATE_FILE, b"/d/f", b"\1") + write(b"", 3, b"data")
    + write(b"", 0, b"abc") + metadata(b"", FILE_INFO) + metadata(b"/d", FILE_INFO),
    "two_files": FILE + write(b"", 0, b"a") + command(CREATE_FILE, b"/g", b"\0") + write(b"", 1 << 40, b"b"),
    "same_file_twice": FILE + command(CREATE_FILE, b"", b"\0") + write(b"", 0, b""),
    "no_name": command(CREATE_DIR, b"", b"\1") + FILE,
    "unknown_type": FILE + command(5, b"", b"body") + write(b"", 0, b"skipped"),
    "nothing": b"",
    "nine_bytes": FILE[:9],
    "header_past_the_end": FILE + FILE[:9],
    "length_of_nothing": command(CREATE_FILE, b"", b"\1", 0),
    "length_below_the_header": FILE + command(CREATE_FILE, b"", b"\1", 9),
    "length_past_the_end": FILE + command(CREATE_FILE, b"", b"\1", 0xFFFFFFFF),
    "path_past_the_command": command(CREATE_FILE, b"/path", b"\1", 12),
    "data_past_the_body": write(b"/f", 0, b"data", 0xFFFFFFFF) + FILE,
    "metadata_past_the_body": metadata(b"/f", FILE_INFO, len(FILE_INFO) + 1) + FILE,
    "metadata_cut": metadata(b"/f", FILE_INFO[:-1]),
    "body_too_short": command(WRITE_FILE, b"/f", b"\0" * 11),
    "path_with_zero_byte": command(CREATE_FILE, b"/f\0g", b"\1"),
}


def frame(block, length, magic=0xF000000F, checksum=0):
    return struct.pack("<III", magic, checksum, length) + block


# One token with 5 literals and a match of 4 + 6 bytes at distance 5, and one with the 5 literals that end a block.
PACKED = b"\x56abcde\x05\x00\x50vwxyz"
FRAMES = {
    "literals": frame(b"\x30abc", 3),
    "packed": frame(PACKED, 20),
    "empty": frame(b"\0", 0),
    "checksum": frame(b"\x90123456789", 9, 0xF800000F, 0xE3069283),
    "wrong_checksum": frame(b"\x90123456789", 9, 0xF800000F, 0xE3069284),
    "other_flags": frame(b"\x30abc", 3, 0xF700000F),
    "wrong_magic": frame(b"\x30abc", 3, 0xE800000F),
    "length_too_large": frame(b"\x30abc", 0xFFFFFFFF),
    "length_too_small": frame(PACKED, 19),
    "match_before_the_start": frame(b"\x16a\x05\x00\x50vwxyz", 16),
    "no_block": frame(b"", 3),
}


def item(first, second, value):
    return struct.pack("<I", len(first)) + first + struct.pack("<I", len(second)) + second + struct.pack("<Q", value)


def token(count, items=b"", total=0, first=0, second=0):
    return struct.pack("<IQII", count, total, first, second) + items


ITEMS = item(b"0123/1", b"d/f", 7) + item(b"0123/2", b"", 1 << 40)
TOKENS = {
    "empty": token(0),
    "two_items": token(2, ITEMS, 1 << 63, 1, 0),
    "other_flags": token(2, ITEMS, 5, 2, 0xFFFFFFFF),
    "item_missing": token(3, ITEMS),
    "count_that_lies": token(0xFFFFFFFF, ITEMS),
    "length_that_lies": token(1, struct.pack("<I", 0xFFFFFFFF) + b"abc"),
    "cut": token(2, ITEMS[:-1]),
    "more_behind": token(1, ITEMS),
}


def main():
    for name, seeds in {"blob_stream": STREAMS, "blob_frame": FRAMES, "batch_token": TOKENS}.items():
        folder = SEEDS / name
        folder.mkdir(exist_ok=True)
        for seed, content in seeds.items():
            (folder / seed).write_bytes(content)


if __name__ == "__main__":
    main()
