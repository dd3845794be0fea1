#pragma once

#include <memory>
#include <string>

#include "tarn/batch/batch_area_dev_factory.h"

namespace agent::batch {

/// Hands each batch to whoever receives items on the calling thread (see receiver_scope_t). It keeps nothing, so one
/// object may stay registered for as long as the process lives. Any thread.
class batch_factory_t final : public tarn::batch::CBatchAreaDevFactory {
  public:
    batch_factory_t();
    ~batch_factory_t() override;

    /// Reads a batch's token, and no more of it than a batch may have. Throws as
    /// `tarn::batch::CBatchAreaDevFactory::LoadToken`; a count out of range is "A batch of [%1] entries is refused: it
    /// has 1 to [%2].", a longer text is refused before it is read.
    std::shared_ptr<io::area::IAreaDevToken> LoadToken(const std::string& type,
                                                       io::binary_stream_tt& stream) const override;

    /// The device that takes the batch. `size` has to say how many bytes come. Throws `exc::CRuntimeExc` "Token [%1] is
    /// not that of a batch.", "Incremental batches are not served.", "Batches are not received here.", "A batch is
    /// refused that says two things about overwriting." when its token and the upload command disagree; the errors of
    /// PlanBatch, of batch_dev_t and of `IItemReceiver::ReceiveBatch`.
    std::shared_ptr<io::area::area_write_dev_t> CreateWriteDev(std::shared_ptr<io::area::IAreaDevToken> token,
                                                               bool incremental, unsigned long* size,
                                                               bool overwrite) override;
};

}  // namespace agent::batch
