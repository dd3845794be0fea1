#pragma once

#include <memory>

#include "agent/staging/copy_groups.h"
#include "agent/staging/received_batch.h"
#include "agent/staging/staging.h"
#include "mirrowen/util/file_info_apply.h"

namespace agent {

/// A batch on its way into the group of its copy.
class group_batch_t final : public IBatchReceiver {
  public:
    group_batch_t(std::shared_ptr<staging_t> staging, batch_slot_t slot, util::EOwnerSource owner);
    ~group_batch_t() override;

    /// Leaves the entries to the copy's lane; waits while another batch waits there already.
    void Apply(received_batch_t batch) override;

  private:
    const std::shared_ptr<staging_t> staging_;
    const batch_slot_t slot_;
    const util::EOwnerSource owner_;
};

}  // namespace agent
