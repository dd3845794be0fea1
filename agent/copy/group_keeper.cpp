#include "agent/copy/group_keeper.h"

#include <iterator>
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

std::vector<sent_item_t> group_keeper_t::TakeBack(std::size_t count) {
    const auto first = items_.end() - static_cast<std::ptrdiff_t>(count);
    std::vector<sent_item_t> taken(std::make_move_iterator(first), std::make_move_iterator(items_.end()));
    items_.erase(first, items_.end());
    for (const sent_item_t& item : taken) {
        bytes_ -= item.bytes;
    }
    return taken;
}

}  // namespace agent::copy
