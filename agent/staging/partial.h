#pragma once

#include <cstdint>

#include "mirrowen/digest/digests.h"

namespace agent {

/// What is kept of a file whose transfer broke off: its first bytes.
struct partial_t {
    std::uint64_t length = 0;       ///< bytes
    digest::block_digest_t digest;  ///< of these bytes

    friend bool operator==(const partial_t&, const partial_t&) = default;
};

}  // namespace agent
