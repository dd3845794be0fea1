#include "tarn/blobfs/blob_fs_connnection.h"

#include <utility>

namespace tarn::blobfs {

CBlobFsConnnection::CBlobFsConnnection(std::string localTempFolder, std::string targetTempFolder, std::string extra)
    : localTempFolder_(std::move(localTempFolder)),
      targetTempFolder_(std::move(targetTempFolder)),
      extra_(std::move(extra)),
      prefix_("blobfs://") {}

CBlobFsConnnection::~CBlobFsConnnection() = default;

std::string CBlobFsConnnection::NextBlobFile() {
    constexpr std::size_t kSeparator = 3;
    const std::size_t length = prefix_.size() < kSeparator ? prefix_.size() : prefix_.size() - kSeparator;
    return prefix_.substr(0, length) + std::to_string(blobCounter_++);
}

}  // namespace tarn::blobfs
