#pragma once

#include "agent/staging/item_dev.h"

namespace agent {

/// Receives a symbolic link. `Finish` makes it in the staging folder, gives it its owner and times, and renames it into
/// place as a file is. Its target is content: it is neither resolved nor judged.
class link_dev_t final : public item_dev_t {
  public:
    /// Throws what CheckTarget throws.
    link_dev_t(std::shared_ptr<staging_t> staging, item_t item, EReplace replace, group_slot_t slot = {});
    ~link_dev_t() override;

    /// Errors of making the link, of ApplyMeta and of `staged_entry_t::Commit`.
    void Finish(std::shared_ptr<synch::completion_port_t> port) override;
};

}  // namespace agent
