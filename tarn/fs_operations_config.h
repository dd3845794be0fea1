#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/network_throttling_ctx.h"
#include "tarn/export.h"

namespace tarn {

/// How the backend that a factory creates shall behave. A plain record, copied by value; copies share the throttling
/// context. This library reads `cloudPath`, `verboseLogging` and `throttling` only and hands the rest to the backends
/// of the embedding agent.
struct TARN_API SFsOperationsConfig {
    /// Bits of `flags`.
    static constexpr std::uint32_t kFile2TapeBackup = 1;         ///< a file-to-tape backup
    static constexpr std::uint32_t kFile2TapeBackupVariant = 2;  ///< its variant, set beside the first

    /// Every field gets its default. `throttlingCtx` may be empty: nothing is throttled then.
    explicit SFsOperationsConfig(std::shared_ptr<io::CNetworkTrottlingCtx> throttlingCtx);

    /// The presets of the agent's kinds of job.
    static SFsOperationsConfig CreateDefaultConfig(std::shared_ptr<io::CNetworkTrottlingCtx> throttlingCtx);
    static SFsOperationsConfig CreateFile2TapeBackupConfig(std::shared_ptr<io::CNetworkTrottlingCtx> throttlingCtx,
                                                           bool variant);
    static SFsOperationsConfig CreateNasBackupConfig(std::shared_ptr<io::CNetworkTrottlingCtx> throttlingCtx);

    void DisableVerboseLogging() noexcept { verboseLogging = false; }

    bool option1 = true;
    bool option2 = false;
    bool option3 = true;
    std::uint32_t flags = 0;
    std::string text1;
    std::string text2;
    std::string cloudPath;  ///< where the cloud backend works, in the form of its paths
    bool option4 = false;
    bool verboseLogging = true;  ///< detailed logging of the backend's operations
    std::shared_ptr<io::CNetworkTrottlingCtx> throttling;
};

}  // namespace tarn
