#include "tarn/backup_media.h"

namespace tarn {

backup_media_t::~backup_media_t() = default;

backup_media_t::extent_operations_t::~extent_operations_t() = default;

backup_media_t::stg_operations_t::~stg_operations_t() = default;

}  // namespace tarn
