#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>

/// The byte order of every serialised form: the least significant byte comes first, on any host.
namespace io {

/// Writes `value` into the sizeof(T) bytes at `out`.
template <std::unsigned_integral T>
constexpr void EncodeLittleEndian(T value, std::byte* out) noexcept {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        out[i] = static_cast<std::byte>(static_cast<std::uint64_t>(value) >> (8 * i) & 0xFF);
    }
}

/// The value in the sizeof(T) bytes at `in`.
template <std::unsigned_integral T>
constexpr T DecodeLittleEndian(const std::byte* in) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value |= std::to_integer<std::uint64_t>(in[i]) << (8 * i);
    }
    return static_cast<T>(value);
}

}  // namespace io
