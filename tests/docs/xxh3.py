"""XXH3-128 as the xxHash project describes it, with its own secret and seed 0."""

MASK = (1 << 64) - 1

SECRET = bytes.fromhex(
    "b8fe6c3923a44bbe7c01812cf721ad1cded46de9839097db7240a4a4b7b3671f"
    "cb79e64eccc0e578825ad07dccff7221b8084674f743248ee03590e6813a264c"
    "3c2852bb91c300cb88d0658b1b532ea371644897a20df94e3819ef46a9deacd8"
    "a8fa763fe39c343ff9dcbbc7c70b4f1d8a51e04bcdb45931c89f7ec9d9787364"
    "eac5ac8334d3ebc3c581a0fffa1363eb170ddd51b7f0da49d316552629d4689e"
    "2b16be587d47a1fc8ff8b8d17ad031ce45cb3a8f95160428afd7fbcabb4b407e")
PRIME32 = (0x9E3779B1, 0x85EBCA77, 0xC2B2AE3D)
PRIME64 = (0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9, 0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5)
STRIPE = 64
STRIPES_IN_A_BLOCK = 16
BLOCK = STRIPE * STRIPES_IN_A_BLOCK


def word(data, offset, size=8):
    return int.from_bytes(data[offset:offset + size], "little")


def secret_word(offset, size):
    return word(SECRET, offset, size) ^ word(SECRET, offset + size, size)


def avalanche(value):
    value = (value ^ value >> 37) * 0x165667919E3779F9 & MASK
    return value ^ value >> 32


def xxh64_avalanche(value):
    value = (value ^ value >> 33) * PRIME64[1] & MASK
    value = (value ^ value >> 29) * PRIME64[2] & MASK
    return value ^ value >> 32


def swap(value, size):
    return int.from_bytes(value.to_bytes(size, "little"), "big")


def fold(left, right):
    """Both halves of a product, one over the other."""
    product = left * right
    return (product ^ product >> 64) & MASK


def of_1_to_3(data):
    first, middle, last = data[0], data[len(data) >> 1], data[-1]
    low = first << 16 | middle << 24 | last | len(data) << 8
    swapped = swap(low, 4)
    high = (swapped << 13 | swapped >> 19) & 0xFFFFFFFF
    return xxh64_avalanche(low ^ secret_word(0, 4)), xxh64_avalanche(high ^ secret_word(8, 4))


def of_4_to_8(data):
    both = word(data, 0, 4) + (int.from_bytes(data[-4:], "little") << 32)
    product = (both ^ secret_word(16, 8)) * (PRIME64[0] + (len(data) << 2))
    low, high = product & MASK, product >> 64 & MASK
    high = high + (low << 1) & MASK
    low ^= high >> 3
    low = (low ^ low >> 35) * 0x9FB21C651E98DF25 & MASK
    return low ^ low >> 28, avalanche(high)


def of_9_to_16(data):
    first, last = word(data, 0), int.from_bytes(data[-8:], "little")
    product = (first ^ last ^ secret_word(32, 8)) * PRIME64[0]
    low = (product & MASK) + (len(data) - 1 << 54) & MASK
    last ^= secret_word(48, 8)
    high = (product >> 64) + last + (last & 0xFFFFFFFF) * (PRIME32[1] - 1) & MASK
    low ^= swap(high, 8)
    product = low * PRIME64[1]
    return avalanche(product & MASK), avalanche((product >> 64) + high * PRIME64[1] & MASK)


def mix_16(data, at, secret):
    return fold(word(data, at) ^ word(SECRET, secret), word(data, at + 8) ^ word(SECRET, secret + 8))


def mix_32(sums, data, first, second, secret):
    low, high = sums
    low = (low + mix_16(data, first, secret) & MASK) ^ (word(data, second) + word(data, second + 8) & MASK)
    high = (high + mix_16(data, second, secret + 16) & MASK) ^ (word(data, first) + word(data, first + 8) & MASK)
    return low, high


def end_middle(sums, size):
    low, high = sums
    mixed = low * PRIME64[0] + high * PRIME64[3] + size * PRIME64[1] & MASK
    return avalanche(low + high & MASK), -avalanche(mixed) & MASK


def of_17_to_128(data):
    """From both ends to the middle."""
    sums = len(data) * PRIME64[0] & MASK, 0
    for pair in reversed(range((len(data) - 1) // 32 + 1)):
        sums = mix_32(sums, data, 16 * pair, len(data) - 16 * pair - 16, 32 * pair)
    return end_middle(sums, len(data))


def of_129_to_240(data):
    sums = len(data) * PRIME64[0] & MASK, 0
    for at in range(0, 128, 32):
        sums = mix_32(sums, data, at, at + 16, at)
    sums = avalanche(sums[0]), avalanche(sums[1])
    for at in range(128, len(data) - 31, 32):
        sums = mix_32(sums, data, at, at + 16, at - 125)
    return end_middle(mix_32(sums, data, len(data) - 16, len(data) - 32, 103), len(data))


def add_stripe(sums, data, at, secret):
    for lane in range(8):
        value = word(data, at + 8 * lane)
        key = value ^ word(SECRET, secret + 8 * lane)
        sums[lane ^ 1] = sums[lane ^ 1] + value & MASK
        sums[lane] = sums[lane] + (key & 0xFFFFFFFF) * (key >> 32) & MASK


def scramble(sums):
    for lane in range(8):
        value = sums[lane] ^ sums[lane] >> 47 ^ word(SECRET, len(SECRET) - STRIPE + 8 * lane)
        sums[lane] = value * PRIME32[0] & MASK


def merge(sums, secret, start):
    for pair in range(4):
        start += fold(sums[2 * pair] ^ word(SECRET, secret + 16 * pair),
                      sums[2 * pair + 1] ^ word(SECRET, secret + 16 * pair + 8))
    return avalanche(start & MASK)


def of_more(data):
    """Stripe by stripe, scrambled after each block; the last stripe ends where the data does."""
    sums = [PRIME32[2], *PRIME64[:4], PRIME32[1], PRIME64[4], PRIME32[0]]
    for stripe in range((len(data) - 1) // STRIPE):
        add_stripe(sums, data, stripe * STRIPE, stripe % STRIPES_IN_A_BLOCK * 8)
        if (stripe + 1) * STRIPE % BLOCK == 0:
            scramble(sums)
    add_stripe(sums, data, len(data) - STRIPE, len(SECRET) - STRIPE - 7)
    low = merge(sums, 11, len(data) * PRIME64[0] & MASK)
    return low, merge(sums, len(SECRET) - STRIPE - 11, ~(len(data) * PRIME64[1]) & MASK)


def of_nothing(_):
    return xxh64_avalanche(secret_word(64, 8)), xxh64_avalanche(secret_word(80, 8))


def xxh3_128(data):
    """The digest in its canonical form, 16 bytes, big-endian."""
    for most, digest in ((0, of_nothing), (3, of_1_to_3), (8, of_4_to_8), (16, of_9_to_16), (128, of_17_to_128),
                         (240, of_129_to_240), (len(data), of_more)):
        if len(data) <= most:
            low, high = digest(data)
            return high.to_bytes(8, "big") + low.to_bytes(8, "big")
