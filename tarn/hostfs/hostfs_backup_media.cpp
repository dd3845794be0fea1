#include "tarn/hostfs/hostfs_backup_media.h"

#include "tarn/hostfs/hostfs_extent_operations.h"
#include "tarn/hostfs/hostfs_stg_operations.h"

namespace tarn::hostfs {

hostfs_backup_media_t::hostfs_backup_media_t()
    : extentOperations_(std::make_shared<extent_operations_t>()),
      stgOperations_(std::make_shared<stg_operations_t>()) {}

hostfs_backup_media_t::~hostfs_backup_media_t() = default;

std::shared_ptr<backup_media_t::extent_operations_t> hostfs_backup_media_t::GetExtentOperations() {
    return extentOperations_;
}

std::shared_ptr<backup_media_t::stg_operations_t> hostfs_backup_media_t::GetStgOperations() {
    return stgOperations_;
}

}  // namespace tarn::hostfs
