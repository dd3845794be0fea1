#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "agent/batch/batch_packer.h"
#include "agent/copy/copy.h"
#include "agent/copy/group_keeper.h"
#include "agent/copy/group_lane.h"
#include "agent/copy/item_sink.h"
#include "agent/copy/sent_item.h"
#include "agent/copy/whole_content.h"
#include "agent/token/item.h"
#include "mirrowen/guid/guid.h"

namespace agent::copy {

/// Which items of a copy travel together.
struct gathering_t {
    bool groups = false;   ///< items wait for the commit of their group
    bool batches = false;  ///< small items are packed; without groups each batch is a group of its own
};

/// Builds the groups of a copy: gives the items their numbers, packs the small ones into batches, and hands batches and
/// full groups over to the lane, which brings them to the sink. Where a batch cannot be written, because the place for
/// temporary files is full for example, its items leave their group (TakeUnsent) and no other batch is begun. One
/// thread, the copy's own.
class group_builder_t {
  public:
    /// `options` and `sink` must outlive this object. What the sink does not take must not be asked for.
    group_builder_t(const copy_options_t& options, item_sink_t& sink, gathering_t gathering);
    /// What was not committed is given up.
    ~group_builder_t();

    /// Whether an item with `size` bytes of content goes into the batch that is being filled. Without a place for
    /// temporary files none does: that is no condition for a copy.
    bool TakesIntoBatch(const item_t& item, std::uint64_t size);
    /// Whether an item that goes alone may wait for the commit of its group.
    bool HasGroups() const noexcept { return gathering_.groups; }

    /// Makes `item` the next of its group, or one that waits for nothing. The number stays free until Add.
    void Mark(item_t& item, bool deferred) const;
    /// Packs an item that was marked as deferred, with its `size` bytes. Throws what batch_packer_t::Add throws.
    void Pack(const item_t& item, const whole_content_t& content, std::uint64_t size);
    /// The deferred item has been packed or put.
    void Add(sent_item_t sent) { group_.Add(std::move(sent)); }

    /// Hands over what has been packed and waits until the sink is the caller's alone.
    void MakeRoom();
    /// Hands over a batch that is full, and a group that is full or old.
    void CommitIfDue();
    /// Hands over everything, and waits until it is committed.
    void Commit();
    /// The items of a batch that could not be written, in their order: each is to be put alone, before anything else.
    /// To be asked after each of the three.
    std::vector<sent_item_t> TakeUnsent() { return std::exchange(unsent_, {}); }
    /// The next group whose commit has been tried; nothing when there is none now.
    std::optional<group_lane_t::done_t> TakeDone() { return lane_.TakeDone(); }

  private:
    bool OpenPacker();
    void FlushBatch();
    void HandOver();
    void EndGroup();

    const copy_options_t& options_;
    item_sink_t& sink_;
    const guid::guid_t copy_;
    gathering_t gathering_;
    group_keeper_t group_;
    std::unique_ptr<batch::batch_packer_t> packer_;
    std::size_t packed_ = 0;  ///< how many items, the last ones of the group, are in the packer
    std::vector<sent_item_t> unsent_;
    group_lane_t lane_;
};

}  // namespace agent::copy
