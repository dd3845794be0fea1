#pragma once

#include <string>

#include "mirrowen/posix/unique_fd.h"

namespace agent::batch {

/// A folder for the blob files of one sender, where nobody else has access. It goes, with what is in it, with this
/// object. What a killed process left goes when the next one of the same user makes a folder in that place: the folder
/// in use is told by the lock on it (flock(2)).
class batch_folder_t {
  public:
    /// Makes it in the directory that the environment variable TMPDIR names, or else in /tmp. Throws
    /// `posix::errno_exc_t` "Failed to create a temporary folder in [%1]", "Failed to open temporary folder [%1]".
    batch_folder_t();
    ~batch_folder_t();
    batch_folder_t(const batch_folder_t&) = delete;
    batch_folder_t& operator=(const batch_folder_t&) = delete;

    /// Absolute when the directory is, without a slash at its end.
    const std::string& GetPath() const noexcept { return path_; }

  private:
    void Make(const std::string& place);
    bool TryTake();

    std::string path_;
    posix::unique_fd_t taken_;
};

}  // namespace agent::batch
