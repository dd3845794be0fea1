#pragma once

#include <memory>

#include "tarn/backup_media.h"
#include "tarn/export.h"

namespace tarn::hostfs {

/// Backup files kept as plain host files; paths are host paths. Any thread.
class TARN_API hostfs_backup_media_t : public backup_media_t {
  public:
    class extent_operations_t;
    class stg_operations_t;

    hostfs_backup_media_t();
    ~hostfs_backup_media_t() override;

    /// The same object at every call, shared with this one.
    std::shared_ptr<backup_media_t::extent_operations_t> GetExtentOperations() override;
    std::shared_ptr<backup_media_t::stg_operations_t> GetStgOperations() override;

  private:
    std::shared_ptr<extent_operations_t> extentOperations_;
    std::shared_ptr<stg_operations_t> stgOperations_;
};

}  // namespace tarn::hostfs
