#pragma once

#include <cstdint>
#include <string>

namespace tarn::batch {

/// One file of a batch. What the three parts mean is agreed between the agents that write and read the batch; here they
/// are only carried, byte for byte.
struct SFileItemSpec {
    std::string firstPath;
    std::string secondPath;
    std::uint64_t value = 0;  ///< a number like a size
    friend bool operator==(const SFileItemSpec&, const SFileItemSpec&) = default;
};

}  // namespace tarn::batch
