#include "agent/staging/hard_link_dev.h"

#include <utility>

#include "agent/staging/place_item.h"

namespace agent {

hard_link_dev_t::hard_link_dev_t(std::shared_ptr<staging_t> staging, item_t item, EReplace replace, group_slot_t slot)
    : item_dev_t(std::move(staging), std::move(item), replace, std::move(slot)) {
    CheckTarget(Root(), item_.path, replace_);
    CheckName(item_.second);
}

hard_link_dev_t::~hard_link_dev_t() = default;

void hard_link_dev_t::Finish(std::shared_ptr<synch::completion_port_t> /*port*/) {
    if (IsDeferred()) {
        Defer(nullptr);
        return;
    }
    touched_directories_t touched;
    PlaceHardLink(staging_, item_, replace_, touched, 0);
    SyncTouched(touched);
}

}  // namespace agent
