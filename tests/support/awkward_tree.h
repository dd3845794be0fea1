#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "mirrowen/io/block/block_math.h"

namespace tests {

/// What goes into an awkward tree besides its names, sizes, times, modes and links.
struct awkward_parts_t {
    bool allModes = true;               ///< a file for each of the 4,096 modes and a directory for each of 512
    bool hardLinks = true;              ///< several names of one file, in one directory and in several
    bool holes = true;                  ///< holes in each place, and zeroes that are no hole
    bool hugeFile = true;               ///< 4 GiB and 1 byte, nearly all of it a hole
    std::size_t attributeBytes = 3900;  ///< of the largest extended attribute
    std::uint64_t blockSize = io::block::kDefaultBlockSize;  ///< sizes lie around this
};

/// Makes the directory `top` and in it a tree of everything that a copy easily gets wrong: every mode, odd names and
/// link targets, deep nesting, sizes around a block, times before 1970 and to the nanosecond, directories and files
/// without permissions, links in cycles, extended attributes, access-control lists, owners.
///
/// Returns what had to be left out and why, one line each: what an ordinary user may not make or could not read back.
/// It is the same each time but for the modification times that it does not set. Throws `std::system_error` that names
/// the object.
std::vector<std::string> MakeAwkwardTree(const std::string& top, const awkward_parts_t& parts = {});

}  // namespace tests
