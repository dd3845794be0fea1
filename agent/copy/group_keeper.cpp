#include "agent/copy/group_keeper.h"

#include <utility>

namespace agent::copy {

void group_keeper_t::Add(sent_item_t item) {
    if (items_.empty()) {
        begun_ = util::clock().SteadyNow();
    }
    bytes_ += item.bytes;
    items_.push_back(std::move(item));
}

bool group_keeper_t::IsDue() const {
    return !items_.empty() &&
           (items_.size() >= kMaxItems || bytes_ >= kMaxBytes || util::clock().SteadyNow() - begun_ >= kMaxAge);
}

std::vector<sent_item_t> group_keeper_t::Take() {
    bytes_ = 0;
    return std::exchange(items_, {});
}

}  // namespace agent::copy
