#include "agent/work/job_lane.h"

#include <exception>
#include <utility>

#include "mirrowen/logging/log_exc.h"

namespace agent::work {

job_lane_t::job_lane_t(thread_scope_t scope) : scope_(std::move(scope)) {}

job_lane_t::~job_lane_t() {
    std::thread thread;
    {
        const synch::lock_t lock(mutex_);
        stopping_ = true;
        thread.swap(thread_);
    }
    changed_.notify_all();
    if (thread.joinable()) {
        thread.join();
    }
}

void job_lane_t::Post(job_t job) {
    synch::lock_t lock(mutex_);
    while (next_) {
        changed_.wait(lock.Native());
    }
    if (!thread_.joinable()) {
        thread_ = std::thread([this] { Loop(); });
    }
    next_ = std::move(job);
    ++posted_;
    changed_.notify_all();
}

void job_lane_t::Drain() {
    synch::lock_t lock(mutex_);
    const std::uint64_t wanted = posted_;
    while (done_ < wanted) {
        changed_.wait(lock.Native());
    }
}

void job_lane_t::Loop() {
    const std::shared_ptr<void> scope = scope_ ? scope_() : nullptr;
    while (true) {
        job_t job;
        {
            synch::lock_t lock(mutex_);
            while (!next_ && !stopping_) {
                changed_.wait(lock.Native());
            }
            if (!next_) {
                return;
            }
            job = std::move(*next_);
            next_.reset();
        }
        changed_.notify_all();  // the place behind the running job is free
        RunJob(job);
        job = nullptr;
        {
            const synch::lock_t lock(mutex_);
            ++done_;
        }
        changed_.notify_all();
    }
}

void job_lane_t::RunJob(const job_t& job) noexcept {
    try {
        job();
    } catch (const std::exception& error) {
        logging::LogExc(error, "A job failed.");
    }
}

}  // namespace agent::work
