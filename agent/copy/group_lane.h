#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/batch/batch.h"
#include "agent/copy/copy.h"
#include "agent/copy/item_sink.h"
#include "agent/copy/sent_item.h"
#include "agent/work/job_lane.h"
#include "mirrowen/guid/guid.h"
#include "mirrowen/synch/mutex.h"

namespace agent::copy {

/// Brings the batches of a copy to the sink and commits its groups, in the order in which they are handed over, on a
/// thread of its own: meanwhile the caller prepares what comes next. A batch that fails is put once more; when it fails
/// again its whole group is lost, which is told when the group's turn to be committed comes, and the next group goes
/// on.
///
/// The functions are for one thread, the copy's own. The items of a group never leave that thread; the lane's thread
/// knows the batch that it puts, how many entries it commits, and what became of them.
class group_lane_t {
  public:
    /// How the jobs are run.
    enum class EJobs {
        eBeside,  ///< on the lane's thread
        eAtOnce,  ///< by the call that hands them over: for a sink that takes no batches
    };
    /// A group whose turn has come. Every item has a fault, which is empty for one that is in its place.
    struct done_t {
        std::vector<sent_item_t> items;
        std::vector<std::string> faults;
        std::vector<copy_note_t> warnings;
        std::set<std::uint64_t> warned;  ///< the numbers of the items that the warnings are about
    };

    /// `options` and `sink` must outlive this object.
    group_lane_t(const copy_options_t& options, item_sink_t& sink, const guid::guid_t& copy, EJobs jobs);
    /// Gives up what has not begun, and waits for the job that runs.
    ~group_lane_t();
    group_lane_t(const group_lane_t&) = delete;
    group_lane_t& operator=(const group_lane_t&) = delete;

    /// Hands over some items of the next group to be committed. Waits while two jobs are under way.
    void Put(batch::batch_t batch);
    /// Ends the group. Waits while two jobs are under way.
    void Commit(std::vector<sent_item_t> items);

    /// Jobs that have not begun do nothing any more; what they were to do has failed.
    void GiveUp() noexcept { abandoned_ = true; }
    /// Waits until every job is done: the sink is the caller's alone until the next one.
    void Drain();
    /// The next group whose turn has come; nothing when there is none now.
    std::optional<done_t> TakeDone();

  private:
    /// What the lane's thread finds out about a group.
    struct result_t {
        std::string fault;  ///< of all entries
        item_sink_t::committed_t committed;
    };

    void Post(std::function<void()> job);
    std::string WhyOver() const;
    bool TryPut(const batch::batch_t& batch, std::string& fault) const;
    void PutNow(const batch::batch_t& batch);
    void CommitNow(std::uint64_t entries);
    std::optional<result_t> TakeResult();

    const copy_options_t& options_;
    item_sink_t& sink_;
    const guid::guid_t copy_;
    const EJobs jobs_;

    // Of the caller's thread.
    std::deque<std::vector<sent_item_t>> committing_;

    // Of the thread that runs the jobs.
    std::string fault_;  ///< why the group whose batches are being put is lost

    // Of both.
    synch::mutex_t mutex_;
    std::deque<result_t> results_ GUARDED_BY(mutex_);
    std::atomic<bool> abandoned_ = false;

    work::job_lane_t lane_;  ///< last: its thread uses everything above
};

}  // namespace agent::copy
