#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace tests {

/// The number of descriptors that this process has open.
inline std::size_t OpenDescriptors() {
    // One of them is the listing's own.
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})) - 1;
}

}  // namespace tests
