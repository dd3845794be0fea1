#include "mirrowen/util/crc32c.h"

#include <isa-l/crc.h>

#include <algorithm>
#include <limits>

namespace util {

std::uint32_t crc32c(std::uint32_t seed, const void* data, std::size_t length) noexcept {
    constexpr std::size_t kMaxPiece = std::numeric_limits<int>::max();
    // The library's parameter is not const, but it only reads.
    auto* next = static_cast<unsigned char*>(const_cast<void*>(data));
    // ISA-L inverts neither the initial value nor the result.
    std::uint32_t state = ~seed;
    while (length > 0) {
        const std::size_t piece = std::min(length, kMaxPiece);
        state = crc32_iscsi(next, static_cast<int>(piece), state);
        next += piece;
        length -= piece;
    }
    return ~state;
}

}  // namespace util
