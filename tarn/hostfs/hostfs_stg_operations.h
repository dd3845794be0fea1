#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/hostfs/hostfs_backup_media.h"

namespace tarn::hostfs {

/// Storage files as host files. Stateless; any thread.
class TARN_API hostfs_backup_media_t::stg_operations_t : public backup_media_t::stg_operations_t {
  public:
    ~stg_operations_t() override;

    /// Opens for reading and writing and creates the file when it is missing; space for `templateParam` bytes is
    /// reserved where the file system can. Throws `posix::errno_exc_t`.
    std::shared_ptr<io::file::random_access_dev_t> StgOpen4Rw(std::uint64_t templateParam,
                                                              const std::string& path) override;

    /// Opens an existing file for reading; a missing one throws `posix::errno_exc_t`.
    std::shared_ptr<io::file::random_access_dev_t> StgOpen4Read(const std::string& path) override;
};

}  // namespace tarn::hostfs
