#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

#include "tests/support/raw_peer.h"

namespace tests {

/// The number of threads that this process has. One that was joined may be among them for a moment more.
inline std::size_t OwnThreads() {
    // A sanitizer starts a thread of its own beside the first one: it is counted from the beginning.
    [[maybe_unused]] static const bool isFirstOver = (std::thread([] {}).join(), true);
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}));
}

/// Waits until this process has no more threads than these; false when it keeps more.
inline bool IsBackAtThreads(std::size_t count) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (OwnThreads() > count && std::chrono::steady_clock::now() < end) {
        ::poll(nullptr, 0, 1);
    }
    return OwnThreads() <= count;
}

}  // namespace tests
