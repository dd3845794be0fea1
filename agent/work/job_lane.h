#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include <boost/thread/condition_variable.hpp>

#include "mirrowen/synch/mutex.h"

namespace agent::work {

/// A thread of its own for pieces of work that come one after another, so that whoever makes them goes on with the next
/// meanwhile. The jobs run in the order in which they were posted; never more than one of them waits behind the one
/// that runs. The thread is started with the first job. Any thread may post and drain, but no job of the lane itself.
class job_lane_t {
  public:
    /// Makes what the lane's thread needs around it (a thread-local scope); called on the thread itself, and what it
    /// returns lives as long as the thread. May be empty.
    using thread_scope_t = std::function<std::shared_ptr<void>()>;
    using job_t = std::function<void()>;

    explicit job_lane_t(thread_scope_t scope = {});
    job_lane_t(const job_lane_t&) = delete;
    job_lane_t& operator=(const job_lane_t&) = delete;
    /// Runs what was posted to its end. Not on the lane's own thread: no job may own its lane.
    ~job_lane_t();

    /// Hands a job over; waits while another one waits already. What the job holds is gone when it counts as done. A
    /// job settles its own failures; what it throws all the same is logged and goes no further. Throws
    /// `std::system_error` when no thread can be had.
    void Post(job_t job);

    /// Waits until every job that was posted before the call is done.
    void Drain();

  private:
    void Loop();
    static void RunJob(const job_t& job) noexcept;

    const thread_scope_t scope_;
    synch::mutex_t mutex_;
    boost::condition_variable changed_;
    std::optional<job_t> next_ GUARDED_BY(mutex_);
    std::uint64_t posted_ GUARDED_BY(mutex_) = 0;
    std::uint64_t done_ GUARDED_BY(mutex_) = 0;
    bool stopping_ GUARDED_BY(mutex_) = false;
    std::thread thread_ GUARDED_BY(mutex_);
};

}  // namespace agent::work
