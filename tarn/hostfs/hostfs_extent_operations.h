#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tarn/export.h"
#include "tarn/hostfs/hostfs_backup_media.h"

namespace tarn::hostfs {

/// Extent files as host files. Stateless; any thread.
class TARN_API hostfs_backup_media_t::extent_operations_t : public backup_media_t::extent_operations_t {
  public:
    ~extent_operations_t() override;

    /// A new file of `size` bytes whose zero runs stay holes, in place of one that is there: see
    /// `hostfs_file_wstream_t::CreateNew`.
    std::shared_ptr<file_wstream_t> ExtCreate(const std::string& path, std::uint64_t size) override;

    /// Bytes; a missing file throws `posix::errno_exc_t`.
    std::uint64_t ExtSize(const std::string& path) override;

    /// As StgOpen4Rw and StgOpen4Read of the storage operations.
    std::shared_ptr<io::file::random_access_dev_t> ExtOpen4RndRwSafe(std::uint64_t templateParam,
                                                                     const std::string& path) override;
    std::shared_ptr<io::file::random_access_dev_t> ExtOpen4RndRead(const std::string& path) override;

    /// Nothing when the file has that size already. Otherwise the content is discarded, also when the new length then
    /// cannot be set, and the file reads as zeroes. A missing file throws `posix::errno_exc_t`; later failures throw
    /// `exc::CRuntimeExc` "Failed to truncate file [%1]. Current size: [%2]. New size: [%3]." over the cause, for the
    /// length itself a system error "set_size failed".
    void ResizeExtent(const std::string& path, std::uint64_t size) override;
};

}  // namespace tarn::hostfs
