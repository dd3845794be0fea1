"""The block stream of docs/protocol.md, for the programs beside it: checksum, digest and frames."""
import struct

DATA, ZERO, END, ABORT, BUSY, CREDIT, STATUS = range(1, 8)
HEADER = struct.Struct("<4sHHIIQQQI12s16sII")
AS_IT_IS = 0xFFFFFFFF
MASK = (1 << 64) - 1


def crc32c(data):
    """The Castagnoli polynomial, reflected, all ones at the start and inverted at the end."""
    value = 0xFFFFFFFF
    for byte in data:
        value ^= byte
        for _ in range(8):
            value = value >> 1 ^ (0x82F63B78 if value & 1 else 0)
    return value ^ 0xFFFFFFFF


# The first 96 bytes of the secret that XXH3 uses when none is given.
SECRET = bytes.fromhex(
    "b8fe6c3923a44bbe7c01812cf721ad1cded46de9839097db7240a4a4b7b3671f"
    "cb79e64eccc0e578825ad07dccff7221b8084674f743248ee03590e6813a264c"
    "3c2852bb91c300cb88d0658b1b532ea371644897a20df94e3819ef46a9deacd8")
PRIME32 = (0x9E3779B1, 0x85EBCA77, 0xC2B2AE3D)
PRIME64 = (0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9, 0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5)


def secret_word(offset, size):
    low, high = SECRET[offset:offset + size], SECRET[offset + size:offset + 2 * size]
    return int.from_bytes(low, "little") ^ int.from_bytes(high, "little")


def avalanche(value):
    value = (value ^ value >> 37) * 0x165667919E3779F9 & MASK
    return value ^ value >> 32


def xxh64_avalanche(value):
    value = (value ^ value >> 33) * PRIME64[1] & MASK
    value = (value ^ value >> 29) * PRIME64[2] & MASK
    return value ^ value >> 32


def swap(value, size):
    return int.from_bytes(value.to_bytes(size, "little"), "big")


def xxh3_1_to_3(data):
    first, middle, last = data[0], data[len(data) >> 1], data[-1]
    low = first << 16 | middle << 24 | last | len(data) << 8
    swapped = swap(low, 4)
    high = (swapped << 13 | swapped >> 19) & 0xFFFFFFFF
    return xxh64_avalanche(low ^ secret_word(0, 4)), xxh64_avalanche(high ^ secret_word(8, 4))


def xxh3_4_to_8(data):
    both = int.from_bytes(data[:4], "little") + (int.from_bytes(data[-4:], "little") << 32)
    product = (both ^ secret_word(16, 8)) * (PRIME64[0] + (len(data) << 2))
    low, high = product & MASK, product >> 64 & MASK
    high = high + (low << 1) & MASK
    low ^= high >> 3
    low = (low ^ low >> 35) * 0x9FB21C651E98DF25 & MASK
    return low ^ low >> 28, avalanche(high)


def xxh3_9_to_16(data):
    first, last = int.from_bytes(data[:8], "little"), int.from_bytes(data[-8:], "little")
    product = (first ^ last ^ secret_word(32, 8)) * PRIME64[0]
    low = (product & MASK) + (len(data) - 1 << 54) & MASK
    last ^= secret_word(48, 8)
    high = (product >> 64) + last + (last & 0xFFFFFFFF) * (PRIME32[1] - 1) & MASK
    low ^= swap(high, 8)
    product = low * PRIME64[1]
    return avalanche(product & MASK), avalanche((product >> 64) + high * PRIME64[1] & MASK)


def xxh3_128(data):
    """The canonical XXH3-128 of at most 16 bytes, which is all that the examples and the small client need."""
    if len(data) > 16:
        raise ValueError(f"{len(data)} bytes are too many")
    if not data:
        low, high = xxh64_avalanche(secret_word(64, 8)), xxh64_avalanche(secret_word(80, 8))
    elif len(data) <= 3:
        low, high = xxh3_1_to_3(data)
    elif len(data) <= 8:
        low, high = xxh3_4_to_8(data)
    else:
        low, high = xxh3_9_to_16(data)
    return high.to_bytes(8, "big") + low.to_bytes(8, "big")


def frame(kind, item=0, payload=b"", raw=0, offset=0, block=0):
    """A frame of uncompressed, unencrypted content."""
    fields = [b"TBLK", kind, 0, len(payload), raw, item, offset, block, AS_IT_IS, bytes(12), bytes(16), 0]
    return HEADER.pack(*fields, crc32c(HEADER.pack(*fields, 0) + payload)) + payload


def end_payload(content, blocks):
    return struct.pack("<QQII", len(content), blocks, 1, 0) + xxh3_128(content) + bytes(16)
