#pragma once

#include <cstdint>
#include <memory>

#include "agent/staging/copy_groups.h"
#include "agent/staging/item_receiver.h"
#include "agent/staging/staging.h"
#include "mirrowen/util/file_info_apply.h"

namespace agent {

/// Puts items below a root, by way of its staging folder. Any thread.
class staging_receiver_t final : public IItemReceiver {
  public:
    /// With `eNumber` owners go by their numbers, whatever names an item carries. What a copy has sent and not
    /// committed is kept for `keepGroups` after its last item, and no longer than this object.
    explicit staging_receiver_t(std::shared_ptr<staging_t> staging,
                                util::EOwnerSource owner = util::EOwnerSource::eNameFirst,
                                std::chrono::milliseconds keepGroups = std::chrono::minutes(2));
    ~staging_receiver_t() override;

    /// The device of the item's kind, with its errors; a deferred item gets a place in the group of its copy, with the
    /// errors of `copy_groups_t::Open`.
    std::shared_ptr<io::area::area_write_dev_t> Receive(item_t item, std::uint64_t size, EReplace replace) override;

    /// A place for the batch in the group of its copy, with the errors of `copy_groups_t::OpenBatch`. Batches of one
    /// copy are applied one after the other on a thread of the copy's.
    std::shared_ptr<IBatchReceiver> ReceiveBatch(const guid::guid_t& copy) override;

  private:
    const std::shared_ptr<staging_t> staging_;
    const util::EOwnerSource owner_;
    const std::shared_ptr<copy_groups_t> groups_;
};

}  // namespace agent
