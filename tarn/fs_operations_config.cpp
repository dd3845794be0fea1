#include "tarn/fs_operations_config.h"

#include <utility>

namespace tarn {

SFsOperationsConfig::SFsOperationsConfig(std::shared_ptr<io::CNetworkTrottlingCtx> throttlingCtx)
    : throttling(std::move(throttlingCtx)) {}

SFsOperationsConfig SFsOperationsConfig::CreateDefaultConfig(std::shared_ptr<io::CNetworkTrottlingCtx> throttlingCtx) {
    return SFsOperationsConfig(std::move(throttlingCtx));
}

SFsOperationsConfig SFsOperationsConfig::CreateFile2TapeBackupConfig(
    std::shared_ptr<io::CNetworkTrottlingCtx> throttlingCtx, bool variant) {
    SFsOperationsConfig config(std::move(throttlingCtx));
    config.flags |= kFile2TapeBackup;
    if (variant) {
        config.flags |= kFile2TapeBackupVariant;
    }
    return config;
}

SFsOperationsConfig SFsOperationsConfig::CreateNasBackupConfig(
    std::shared_ptr<io::CNetworkTrottlingCtx> throttlingCtx) {
    SFsOperationsConfig config(std::move(throttlingCtx));
    config.option3 = false;
    config.verboseLogging = false;
    return config;
}

}  // namespace tarn
