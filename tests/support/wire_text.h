#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace tests {

/// Bytes of a message, put together by hand: numbers in little endian, strings with their length in front.
class wire_text_t {
  public:
    wire_text_t& U16(std::uint16_t value) { return Number(value); }
    wire_text_t& U32(std::uint32_t value) { return Number(value); }
    wire_text_t& U64(std::uint64_t value) { return Number(value); }
    wire_text_t& Raw(std::string_view bytes) {
        bytes_ += bytes;
        return *this;
    }
    wire_text_t& Zeroes(std::size_t count) {
        bytes_.append(count, '\0');
        return *this;
    }
    wire_text_t& String(std::string_view text) { return U32(static_cast<std::uint32_t>(text.size())).Raw(text); }

    const std::string& Bytes() const noexcept { return bytes_; }

  private:
    template <class T>
    wire_text_t& Number(T value) {
        static_assert(std::is_unsigned_v<T>);
        for (std::size_t byte = 0; byte < sizeof(T); ++byte) {
            bytes_ += static_cast<char>(value >> (8 * byte) & 0xFFU);
        }
        return *this;
    }

    std::string bytes_;
};

/// The number that stands in little endian at `at`.
inline std::uint32_t U32At(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t byte = 0; byte < sizeof(value); ++byte) {
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes.at(at + byte))) << (8 * byte);
    }
    return value;
}

}  // namespace tests
