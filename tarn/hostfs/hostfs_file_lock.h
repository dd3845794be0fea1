#pragma once

#include <memory>
#include <string>

#include "mirrowen/posix/posix_file.h"
#include "tarn/export.h"

namespace tarn::hostfs {

/// Marks the exclusive use of a host file for as long as it lives. On this platform the mark is all there is: nobody is
/// kept from the file, in this process or another. One thread at a time.
class TARN_API hostfs_file_lock_t {
  public:
    /// A lock on `file`, which it keeps open.
    static std::shared_ptr<hostfs_file_lock_t> GetExclusiveLockPtrForFile(std::shared_ptr<posix::posix_file_t> file);

    /// Locks `file`, open under `path`, exclusively.
    hostfs_file_lock_t(const std::string& path, std::shared_ptr<posix::posix_file_t> file);
    hostfs_file_lock_t(const hostfs_file_lock_t&) = delete;
    hostfs_file_lock_t& operator=(const hostfs_file_lock_t&) = delete;
    /// Unlocks; a failure is logged as a warning "Problem with unlocking %1".
    ~hostfs_file_lock_t();

    /// The platform's part; both do nothing.
    static void ApplyLock(const std::string& path, const std::shared_ptr<posix::posix_file_t>& file, bool exclusive);
    static void RemoveLock(const std::string& path, const std::shared_ptr<posix::posix_file_t>& file);

  private:
    std::string path_;
    std::shared_ptr<posix::posix_file_t> file_;
};

}  // namespace tarn::hostfs
