#pragma once

#include <string>

#include "tests/support/temp_dir.h"

namespace tests {

/// A file system for one test: memory ("tmpfs"), or a fresh image of half a GiB in a file ("ext4", "xfs") that takes
/// only the room that is used. It is mounted where only this process and the children made afterwards see it, so
/// nothing of it outlives them. Needs root, and mkfs of the kind; make it before the process has other threads.
class own_file_system_t {
  public:
    explicit own_file_system_t(const std::string& kind);
    ~own_file_system_t();
    own_file_system_t(const own_file_system_t&) = delete;
    own_file_system_t& operator=(const own_file_system_t&) = delete;

    /// Why there is none; empty when there is one.
    const std::string& WhyNot() const noexcept { return whyNot_; }
    /// Absolute, without a slash at its end.
    const std::string& path() const noexcept { return path_; }

  private:
    std::string Mount(const std::string& kind) const;

    const temp_dir_t dir_;
    const std::string path_;
    const std::string whyNot_;
};

}  // namespace tests
