#include "agent/net/session_threads.h"

#include <utility>

namespace agent::net {

session_threads_t::session_threads_t(thread_scope_t scope) : scope_(std::move(scope)) {}

session_threads_t::~session_threads_t() {
    std::vector<std::jthread> threads;
    {
        const synch::lock_t lock(mutex_);
        stopping_ = true;
        queue_.clear();
        threads.swap(threads_);
    }
    wake_.notify_all();
}

std::future<void> session_threads_t::Run(std::function<void()> work) {
    std::packaged_task<void()> task(std::move(work));
    std::future<void> result = task.get_future();
    {
        const synch::lock_t lock(mutex_);
        queue_.push_back(std::move(task));
        if (idle_ < queue_.size()) {
            threads_.emplace_back([this] { Loop(); });
        }
    }
    wake_.notify_one();
    return result;
}

void session_threads_t::Loop() {
    const std::shared_ptr<void> scope = scope_ ? scope_() : nullptr;
    for (;;) {
        std::packaged_task<void()> task;
        {
            synch::lock_t lock(mutex_);
            ++idle_;
            while (queue_.empty() && !stopping_) {
                wake_.wait(lock.Native());
            }
            --idle_;
            if (queue_.empty()) {
                return;
            }
            task = std::move(queue_.front());
            queue_.pop_front();
        }
        task();
    }
}

}  // namespace agent::net
