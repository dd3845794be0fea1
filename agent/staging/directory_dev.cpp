#include "agent/staging/directory_dev.h"

#include <utility>

#include "agent/staging/place_item.h"

namespace agent {

directory_dev_t::directory_dev_t(std::shared_ptr<staging_t> staging, item_t item, EReplace replace, group_slot_t slot)
    : item_dev_t(std::move(staging), std::move(item), replace, std::move(slot)) {
    const std::optional<struct stat> found = Root().TryStat(item_.path);
    if (found && !S_ISDIR(found->st_mode) && replace_ == EReplace::eNo) {
        ThrowExists(Shown());
    }
}

directory_dev_t::~directory_dev_t() = default;

void directory_dev_t::Finish(std::shared_ptr<synch::completion_port_t> /*port*/) {
    if (IsDeferred()) {
        Defer(nullptr);
        return;
    }
    touched_directories_t touched;
    PlaceDirectory(Root(), item_, replace_, Sync(), Warnings(), touched, 0);
    SyncTouched(touched);
}

}  // namespace agent
