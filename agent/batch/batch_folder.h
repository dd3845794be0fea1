#pragma once

#include <string>

#include "mirrowen/posix/unique_fd.h"

namespace agent::batch {

/// A folder for the blob files of one sender, where nobody else has access. It goes, with what is in it, with this
/// object; what a killed process left goes with RemoveAbandonedFolders.
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
    posix::unique_fd_t taken_;  ///< with a lock on it (flock(2)), by which others see that it is in use
};

/// Removes the folders that killed processes of this user left in the place where folders are made. As far as it goes:
/// what cannot be removed is logged. Any thread.
void RemoveAbandonedFolders() noexcept;

}  // namespace agent::batch
