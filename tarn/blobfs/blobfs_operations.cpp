#include "tarn/blobfs/blobfs_operations.h"

#include <string_view>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/fs_log.h"

namespace tarn::blobfs {

std::map<std::string, std::shared_ptr<blobfs_operations_t>> mapBlobFsOps;

blobfs_operations_t::blobfs_operations_t(std::shared_ptr<BlobCreater> creater) : creater_(std::move(creater)) {
    fs_log.tr("blobfs_operations_t");
}

blobfs_operations_t::~blobfs_operations_t() {
    fs_log.tr("~blobfs_operations_t");
}

bool blobfs_operations_t::IsBlobFsPath(const std::string& path) {
    std::string prefix;
    return _GetPrefix(path, prefix) && mapBlobFsOps.contains(prefix);
}

std::shared_ptr<blobfs_operations_t> blobfs_operations_t::GetByFsPath(const std::string& path) {
    std::string prefix;
    if (!_GetPrefix(path, prefix)) {
        throw exc::CRuntimeExc("Invalid prefix in fs_path [%1]", path);
    }
    const auto found = mapBlobFsOps.find(prefix);
    if (found == mapBlobFsOps.end()) {
        throw exc::CRuntimeExc("Cannot find fs_operation object by prefix [%1].", prefix);
    }
    return found->second;
}

// NOLINTNEXTLINE(bugprone-reserved-identifier)
bool blobfs_operations_t::_GetPrefix(const std::string& path, std::string& prefix) {
    constexpr std::string_view kSeparator = "://";
    const std::size_t at = path.find(kSeparator);
    if (at == std::string::npos) {
        return false;
    }
    prefix = path.substr(0, at + kSeparator.size());
    return true;
}

}  // namespace tarn::blobfs
