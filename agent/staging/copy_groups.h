#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>

#include "agent/root/confined_root.h"
#include "agent/staging/copy_group.h"
#include "agent/token/item.h"
#include "agent/work/job_lane.h"
#include "brannock/transmission/entry_reports.h"
#include "mirrowen/guid/guid.h"
#include "mirrowen/synch/mutex.h"

namespace agent {

/// The place of a batch in its copy's group, and where its entries are worked on, one batch after the other.
struct batch_slot_t {
    group_slot_t place;
    std::shared_ptr<work::job_lane_t> lane;  ///< no job may own it
};

/// The groups of all copies that are under way. A group belongs to its copy and not to a session: the copy's next
/// session goes on with it. It is dropped, with all that it staged, when nobody has used it for `keep`; that is noticed
/// when the next item comes. Any thread.
class copy_groups_t {
  public:
    static constexpr std::size_t kMaxGroups = 64;
    /// Every entry of a group may fail, and each failure is reported.
    static constexpr std::uint64_t kMaxEntries = brannock::transmission::kMaxReports;

    explicit copy_groups_t(std::chrono::milliseconds keep);

    /// A place for a deferred item in the group of its copy, which begins with it if there is none; `folder` is where
    /// it is staged. Throws `exc::CRuntimeExc` "Entry [%1] is refused: a group has at most [%2] entries." and "A group
    /// for copy [%1] is refused: at most [%2] groups are kept."
    group_slot_t Open(const item_t& item, const confined_root_t& folder);

    /// A place for a batch, likewise; the numbers of its entries are the caller's to judge. The copy's batches share a
    /// lane.
    batch_slot_t OpenBatch(const guid::guid_t& copy, const confined_root_t& folder);

    /// The copy's group, which is no longer kept here; none when the copy has none. Waits until the batches that came
    /// for it were worked on.
    std::shared_ptr<copy_group_t> Take(const guid::guid_t& copy);

    /// Drops what nobody has used for too long.
    void DropUnused();

  private:
    struct kept_t {
        std::shared_ptr<copy_group_t> group;
        std::shared_ptr<work::job_lane_t> lane;  ///< none before the first batch
        std::chrono::steady_clock::time_point usedAt;
    };
    kept_t& Find(const guid::guid_t& copy, const confined_root_t& folder) REQUIRES(mutex_);

    const std::chrono::milliseconds keep_;
    synch::mutex_t mutex_;
    std::map<guid::guid_t, kept_t> groups_ GUARDED_BY(mutex_);
};

}  // namespace agent
