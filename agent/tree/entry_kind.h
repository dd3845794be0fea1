#pragma once

#include <sys/stat.h>

#include <cstdint>

namespace agent {

/// What an object of a tree is.
enum class EEntryKind : std::uint32_t {
    eFile = 0,
    eDirectory = 1,
    eLink = 2,
    eFifo = 3,
    eSocket = 4,
    eDevice = 5,
};

/// The kind that a file's mode tells.
EEntryKind KindOf(mode_t mode) noexcept;
/// FIFOs, sockets and devices: what no copy takes.
bool IsSpecial(EEntryKind kind) noexcept;
/// "file", "directory", "link", "FIFO", "socket", "device".
const char* NameOfKind(EEntryKind kind) noexcept;

}  // namespace agent
