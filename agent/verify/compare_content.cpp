#include "agent/verify/compare_content.h"

#include <algorithm>
#include <cstddef>

#include "agent/verify/content_cursor.h"
#include "mirrowen/util/str_format.h"

namespace agent::verify {

namespace {

using copy::content_piece_t;

// How many of the first `count` bytes are equal.
std::uint64_t count_equal(const content_piece_t& left, const content_piece_t& right, std::uint64_t count) {
    if (left.data == nullptr && right.data == nullptr) {
        return count;
    }
    if (left.data == nullptr || right.data == nullptr) {
        const std::byte* const data = left.data == nullptr ? right.data : left.data;
        const auto isData = [](std::byte byte) { return byte != std::byte{0}; };
        return static_cast<std::uint64_t>(std::find_if(data, data + count, isData) - data);
    }
    return static_cast<std::uint64_t>(std::mismatch(left.data, left.data + count, right.data).first - left.data);
}

}  // namespace

std::optional<std::string> CompareContent(io::area::area_read_dev_t& first, io::area::area_read_dev_t& second,
                                          std::uint64_t& bytes) {
    content_cursor_t left(first);
    content_cursor_t right(second);
    for (std::uint64_t offset = 0;;) {
        const bool more = left.Fill();
        if (right.Fill() != more) {
            return util::str_format("the %1 ends at byte %2", more ? "second" : "first", offset);
        }
        if (!more) {
            return std::nullopt;
        }
        const std::uint64_t count = std::min(left.Left().size, right.Left().size);
        const std::uint64_t equal = count_equal(left.Left(), right.Left(), count);
        bytes += equal;
        offset += equal;
        if (equal != count) {
            return util::str_format("content differs at byte %1", offset);
        }
        left.Skip(count);
        right.Skip(count);
    }
}

}  // namespace agent::verify
