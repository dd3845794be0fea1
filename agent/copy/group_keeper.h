#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "agent/copy/sent_item.h"
#include "mirrowen/util/clock.h"

namespace agent::copy {

/// The items of a copy that have been put but not committed, by their numbers in the group. One thread.
class group_keeper_t {
  public:
    static constexpr std::size_t kMaxItems = 512;
    static constexpr std::uint64_t kMaxBytes = std::uint64_t{64} << 20;
    static constexpr std::chrono::seconds kMaxAge{5};

    /// The number under which the next item is to be put. It stays the same until Add: an item whose arrival was not
    /// acknowledged, or that is not wanted after all, gives its number to the next one.
    std::uint64_t NextNumber() const noexcept { return items_.size(); }
    /// The item with the next number has been put.
    void Add(sent_item_t item);

    /// Whether the group is to be committed now: it is as large or as old as a group may be.
    bool IsDue() const;

    /// The items in the order of their numbers; the next one begins a new group.
    std::vector<sent_item_t> Take();
    /// The last `count` items, which belong to the group no longer: their numbers go to the next ones.
    std::vector<sent_item_t> TakeBack(std::size_t count);

  private:
    std::vector<sent_item_t> items_;
    std::uint64_t bytes_ = 0;
    util::IClock::steady_point_t begun_{};
};

}  // namespace agent::copy
