#include "tarn/hostfs/hostfs_file_lock.h"

#include <exception>
#include <utility>

#include "mirrowen/util/str_format.h"
#include "tarn/fs_log.h"

namespace tarn::hostfs {

std::shared_ptr<hostfs_file_lock_t> hostfs_file_lock_t::GetExclusiveLockPtrForFile(
    std::shared_ptr<posix::posix_file_t> file) {
    const std::string path = file->GetPath();
    return std::make_shared<hostfs_file_lock_t>(path, std::move(file));
}

hostfs_file_lock_t::hostfs_file_lock_t(const std::string& path, std::shared_ptr<posix::posix_file_t> file)
    : path_(path), file_(std::move(file)) {
    ApplyLock(path_, file_, true);
}

hostfs_file_lock_t::~hostfs_file_lock_t() {
    try {
        RemoveLock(path_, file_);
    } catch (const std::exception& error) {
        fs_log.warn(util::str_format("Problem with unlocking %1", path_), error);
    }
}

}  // namespace tarn::hostfs
