#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "mirrowen/posix/unique_fd.h"

namespace tests {

/// Somebody who has the right to rename things in a directory and uses it: as fast as it can be done, two names there
/// change places, until it is stopped or goes. In the end each name is again what it was.
class flipper_t {
  public:
    /// Returns when it has begun. `one` and `other` must be there. Throws `std::runtime_error` when they cannot change
    /// places.
    flipper_t(const std::string& directory, std::string one, std::string other);
    ~flipper_t();
    flipper_t(const flipper_t&) = delete;
    flipper_t& operator=(const flipper_t&) = delete;

    /// Ends it, since a test that looks at the place would be swapped under, too; returns how often the names have
    /// changed places.
    std::uint64_t Stop();
    /// How often until now.
    std::uint64_t Flips() const noexcept { return flips_; }

  private:
    bool Flip() const noexcept;
    void Run() noexcept;

    const posix::unique_fd_t directory_;
    const std::string one_;
    const std::string other_;
    std::atomic<std::uint64_t> flips_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace tests
