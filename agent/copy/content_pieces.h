#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "mirrowen/io/area/area.h"

namespace agent::copy {

/// A run of a file's bytes: `size` bytes at `data`, or that many zeroes where there is no data.
struct content_piece_t {
    const std::byte* data = nullptr;
    std::uint64_t size = 0;
};

/// What `area` stands for, in order. The pieces point into the area's blocks.
std::vector<content_piece_t> PiecesOf(const io::area::IArea& area);

}  // namespace agent::copy
