#pragma once

#include <cstddef>
#include <cstdint>

/// What both ends of the file upload dialogue agree on; docs/protocol.md describes it whole.
namespace tarn::upload {

/// The number that opens each exchange.
enum class ECommand : std::uint32_t {
    eFile = 1,
    eEndOfSession = 2,
    eDiskContent = 3,
    eFileWithPermissions = 4,
    eItem = 5,
    eItemWithPermissions = 6,
    eDiskCache = 7,
    eItemHvir = 8,
    eExistingFiles = 9,
    eSymLink = 10,
};

/// Limits on what the other end sends; a longer value ends the session with an error.
inline constexpr std::uint32_t kMaxPathBytes = 65536;
inline constexpr std::uint32_t kMaxTypeBytes = 256;
inline constexpr std::uint32_t kMaxListedPaths = 1'000'000;
inline constexpr std::size_t kMaxListedBytes = std::size_t{64} << 20;  ///< all paths of one list together

/// So many invalid commands one after another cannot be a sender that is merely newer than we are.
inline constexpr unsigned kMaxInvalidCommands = 1024;

}  // namespace tarn::upload
