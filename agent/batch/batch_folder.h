#pragma once

#include <string>

namespace agent::batch {

/// A folder for the blob files of one sender, where nobody else has access. It goes, with what is in it, with this
/// object.
class batch_folder_t {
  public:
    /// Makes it below the directory that the environment variable TMPDIR names, or else below /tmp. Throws
    /// `posix::errno_exc_t` "Failed to create a temporary folder [%1]".
    batch_folder_t();
    ~batch_folder_t();
    batch_folder_t(const batch_folder_t&) = delete;
    batch_folder_t& operator=(const batch_folder_t&) = delete;

    /// Absolute when the directory is, without a slash at its end.
    const std::string& GetPath() const noexcept { return path_; }

  private:
    std::string path_;
};

}  // namespace agent::batch
