#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mirrowen/io/area/area_dev_factory.h"
#include "tarn/export.h"

namespace tarn::batch {

/// Knows the token of batches and nothing else: it opens no devices, for what becomes of a batch is decided by the
/// agent, which derives its own factory and registers that in `CCorvelCtx`. Stateless: one instance serves any number
/// of calls on any threads.
class TARN_API CBatchAreaDevFactory : public io::area::IAreaDevFactory {
  public:
    ~CBatchAreaDevFactory() override;

    /// Appends "BatchFileUploadToken"; what is in `types` already stays.
    void EnumTokenTypes(std::vector<std::string>& types) override;

    /// Reads the token of a batch. A `type` other than "BatchFileUploadToken" (exact bytes) throws `exc::CRuntimeExc`
    /// "Token type '%1' is not supported by bacth area dev factory." before anything is read; otherwise as
    /// `CBatchAreaDevToken::Unserial`.
    std::shared_ptr<io::area::IAreaDevToken> LoadToken(const std::string& type,
                                                       io::binary_stream_tt& stream) const override;

    /// Always throws `exc::CRuntimeExc` "Failed to create read device for batch upload." over "Not supported.".
    std::shared_ptr<io::area::area_read_dev_t> CreateReadDev(
        std::shared_ptr<io::area::IAreaDevToken> token) const override;

    /// Always throws `exc::CRuntimeExc` "Failed to create write device for batch upload." over "Not supported.".
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDev(std::shared_ptr<io::area::IAreaDevToken> token,
                                                               bool incremental, unsigned long* size,
                                                               bool overwrite) override;

    /// Always throws `exc::CRuntimeExc` "Batch processing does not support HVIR.".
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDevForHVIR(std::shared_ptr<io::area::IAreaDevToken> token,
                                                                      unsigned long* size) override;
};

}  // namespace tarn::batch
