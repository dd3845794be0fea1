#include "agent/staging/link_dev.h"

#include <utility>

#include "agent/staging/staged_entry.h"

namespace agent {

link_dev_t::link_dev_t(std::shared_ptr<staging_t> staging, item_t item, EReplace replace, group_slot_t slot)
    : item_dev_t(std::move(staging), std::move(item), replace, std::move(slot)) {
    CheckTarget(Root(), item_.path, replace_);
}

link_dev_t::~link_dev_t() = default;

void link_dev_t::Finish(std::shared_ptr<synch::completion_port_t> /*port*/) {
    auto entry = std::make_unique<staged_entry_t>(staging_);
    const confined_root_t& folder = staging_->GetFolder();
    folder.MakeLink(item_.second, entry->GetName());
    ApplyLinkAttributes(folder.GetDescriptor(), entry->GetName());
    if (IsDeferred()) {
        Defer(std::move(entry));
    } else {
        entry->Commit(item_.path, replace_, Sync());
    }
}

}  // namespace agent
