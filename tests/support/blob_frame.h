#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "mirrowen/util/crc32c.h"
#include "tests/support/wire_text.h"

namespace tests {

/// An LZ4 block of nothing but literals: one token, the rest of their number in bytes of 255 and a last one below, and
/// then they themselves. Packs nothing, and needs no packer.
inline std::string LiteralBlock(std::string_view bytes) {
    std::string block(1, static_cast<char>((bytes.size() < 15 ? bytes.size() : 15) << 4U));
    if (bytes.size() >= 15) {
        std::size_t rest = bytes.size() - 15;
        for (; rest >= 255; rest -= 255) {
            block += '\xff';
        }
        block += static_cast<char>(rest);
    }
    return block.append(bytes);
}

/// The content of a blob file; whatever is wrong in it is given by the caller.
inline std::string BlobFrame(std::string_view payload, std::uint32_t magicAndFlags = 0xF800000F) {
    wire_text_t frame;
    frame.U32(magicAndFlags).U32(util::crc32c(0, payload.data(), payload.size()));
    return frame.U32(static_cast<std::uint32_t>(payload.size())).Raw(LiteralBlock(payload)).Bytes();
}

}  // namespace tests
