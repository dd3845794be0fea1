#include "agent/staging/copy_groups.h"

#include <utility>
#include <vector>

#include "agent/gate/session_scope.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/util/clock.h"

namespace agent {

namespace {

constinit logging::log_section_t g_log("agent");

}  // namespace

copy_groups_t::copy_groups_t(std::chrono::milliseconds keep) : keep_(keep) {}

group_slot_t copy_groups_t::Open(const item_t& item, const confined_root_t& folder) {
    if (item.entry >= kMaxEntries) {
        throw exc::CRuntimeExc("Entry [%1] is refused: a group has at most [%2] entries.", item.entry, kMaxEntries);
    }
    const synch::lock_t lock(mutex_);
    const kept_t& kept = Find(item.copy, folder);
    return {kept.group, kept.group->NewTicket()};
}

batch_slot_t copy_groups_t::OpenBatch(const guid::guid_t& copy, const confined_root_t& folder) {
    const synch::lock_t lock(mutex_);
    kept_t& kept = Find(copy, folder);
    if (!kept.lane) {
        // Its jobs are a peer's business, so what is dispatched there passes the gate.
        kept.lane = std::make_shared<work::job_lane_t>([] { return std::make_shared<session_scope_t>(); });
    }
    return {{kept.group, kept.group->NewTicket()}, kept.lane};
}

copy_groups_t::kept_t& copy_groups_t::Find(const guid::guid_t& copy, const confined_root_t& folder) {
    auto found = groups_.find(copy);
    if (found == groups_.end()) {
        if (groups_.size() >= kMaxGroups) {
            throw exc::CRuntimeExc("A group for copy [%1] is refused: at most [%2] groups are kept.", copy.ToAStr(),
                                   kMaxGroups);
        }
        found = groups_.emplace(copy, kept_t{std::make_shared<copy_group_t>(folder.OpenTop()), {}, {}}).first;
    }
    found->second.usedAt = util::clock().SteadyNow();
    return found->second;
}

std::shared_ptr<copy_group_t> copy_groups_t::Take(const guid::guid_t& copy) {
    kept_t taken;
    {
        const synch::lock_t lock(mutex_);
        auto node = groups_.extract(copy);
        if (!node) {
            return nullptr;
        }
        taken = std::move(node.mapped());
    }
    if (taken.lane) {
        taken.lane->Drain();
    }
    return std::move(taken.group);
}

void copy_groups_t::DropUnused() {
    std::vector<kept_t> dropped;  // they remove their files without the lock
    const synch::lock_t lock(mutex_);
    const auto now = util::clock().SteadyNow();
    for (auto entry = groups_.begin(); entry != groups_.end();) {
        kept_t& kept = entry->second;
        if (kept.group.use_count() > 1) {
            kept.usedAt = now;  // a device is at work for it
        }
        if (now - kept.usedAt <= keep_) {
            ++entry;
            continue;
        }
        g_log.warn("Copy [%1] was not gone on with; what was received for its next commit is dropped.",
                   entry->first.ToAStr());
        dropped.push_back(std::move(kept));
        entry = groups_.erase(entry);
    }
}

}  // namespace agent
