#pragma once

#include "agent/staging/item_dev.h"

namespace agent {

/// Receives a hard link: a further name for a file that is below the root already.
class hard_link_dev_t final : public item_dev_t {
  public:
    /// Throws what CheckTarget throws, and what CheckName says of the first name.
    hard_link_dev_t(std::shared_ptr<staging_t> staging, item_t item, EReplace replace, group_slot_t slot = {});
    ~hard_link_dev_t() override;

    /// Errors of PlaceHardLink and "Failed to sync [%1]".
    void Finish(std::shared_ptr<synch::completion_port_t> port) override;
};

}  // namespace agent
