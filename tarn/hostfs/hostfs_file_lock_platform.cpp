// What a file lock does on this platform: nothing, the lock object alone marks the exclusive use. Kept apart from the
// object's life cycle, which is the same everywhere.
#include "tarn/hostfs/hostfs_file_lock.h"

namespace tarn::hostfs {

void hostfs_file_lock_t::ApplyLock(const std::string& /*path*/, const std::shared_ptr<posix::posix_file_t>& /*file*/,
                                   bool /*exclusive*/) {}

void hostfs_file_lock_t::RemoveLock(const std::string& /*path*/, const std::shared_ptr<posix::posix_file_t>& /*file*/) {
}

}  // namespace tarn::hostfs
