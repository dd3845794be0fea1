#include "tarn/hostfs/hostfs_stg_operations.h"

#include <optional>

#include "mirrowen/io/file/hosted_file_dev.h"

namespace tarn::hostfs {

hostfs_backup_media_t::stg_operations_t::~stg_operations_t() = default;

std::shared_ptr<io::file::random_access_dev_t> hostfs_backup_media_t::stg_operations_t::StgOpen4Rw(
    std::uint64_t templateParam, const std::string& path) {
    return io::file::hosted_file_dev_t::Create(path, false, io::file::ECreateMode::eOpenOrCreate,
                                               io::file::file_template_t(templateParam));
}

std::shared_ptr<io::file::random_access_dev_t> hostfs_backup_media_t::stg_operations_t::StgOpen4Read(
    const std::string& path) {
    return io::file::hosted_file_dev_t::Create(path, true, io::file::ECreateMode::eOpenExisting, std::nullopt);
}

}  // namespace tarn::hostfs
