#pragma once

#include <memory>
#include <string>

#include "agent/root/confined_root.h"
#include "mirrowen/posix/posix_file.h"

namespace agent {

/// A file that may be resumed, open and locked: nobody else writes it meanwhile. It stays where it is when this object
/// goes, unless it is empty or was moved or removed. One thread at a time.
class partial_file_t {
  public:
    /// `file` is what `name` in `folder` leads to, locked.
    partial_file_t(std::shared_ptr<const confined_root_t> folder, std::string name,
                   std::shared_ptr<posix::posix_file_t> file);
    ~partial_file_t();
    partial_file_t(const partial_file_t&) = delete;
    partial_file_t& operator=(const partial_file_t&) = delete;

    const std::shared_ptr<posix::posix_file_t>& GetFile() const noexcept { return file_; }

    /// Gives the file the name `name` in `folder`; it is an ordinary one from then on. Throws "Failed to rename to
    /// [%1]".
    void MoveTo(const confined_root_t& folder, const std::string& name);

    /// Frees the room that it takes, and its name.
    void Remove() noexcept;

  private:
    const std::shared_ptr<const confined_root_t> folder_;
    const std::string name_;
    const std::shared_ptr<posix::posix_file_t> file_;
    bool here_ = true;
};

}  // namespace agent
