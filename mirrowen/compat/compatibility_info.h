#pragma once

#include <cstdint>

namespace compat {

/// What the far end understands, agreed on before a session; decides how keysets are serialised.
struct SCompatibilityInfo {
    std::uint32_t version = 1;  ///< version of the keyset form
};

}  // namespace compat
