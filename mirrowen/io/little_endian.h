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

/// A number as it stands in a serialised form: sizeof(T) bytes of no alignment, so a struct made of these has the
/// form's layout on any host and may lie anywhere in a buffer.
template <std::unsigned_integral T>
class little_endian_t {
  public:
    little_endian_t& operator=(T value) noexcept {
        EncodeLittleEndian(value, bytes_);
        return *this;
    }
    // NOLINTNEXTLINE(google-explicit-constructor): it reads as the number that it is
    operator T() const noexcept { return DecodeLittleEndian<T>(bytes_); }

  private:
    std::byte bytes_[sizeof(T)];
};

}  // namespace io
