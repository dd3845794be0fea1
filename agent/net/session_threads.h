#pragma once

#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <boost/thread/condition_variable.hpp>

#include "mirrowen/synch/mutex.h"

namespace agent::net {

/// Makes what a thread of a session needs around it (a thread-local scope); what it returns lives as long as the
/// thread. Called on the thread itself; may be empty.
using thread_scope_t = std::function<std::shared_ptr<void>()>;

/// The threads of one session: started when work comes and none is idle, reused from item to item, joined at the end.
/// Any thread may call Run.
class session_threads_t {
  public:
    explicit session_threads_t(thread_scope_t scope = {});
    session_threads_t(const session_threads_t&) = delete;
    session_threads_t& operator=(const session_threads_t&) = delete;
    /// Waits for work that was begun; work that was not begun yet is dropped and its future reports a broken promise.
    ~session_threads_t();

    /// Runs `work` on one of the threads; the future carries what it throws. Work never waits for other work to end.
    std::future<void> Run(std::function<void()> work);

  private:
    struct piece_t {
        std::function<void()> work;
        std::promise<void> done;
    };

    void Loop();
    void BecomeIdle();
    std::optional<piece_t> Next();

    const thread_scope_t scope_;
    synch::mutex_t mutex_;
    boost::condition_variable wake_;
    std::deque<piece_t> queue_ GUARDED_BY(mutex_);
    std::size_t idle_ GUARDED_BY(mutex_) = 0;
    bool stopping_ GUARDED_BY(mutex_) = false;
    std::vector<std::jthread> threads_ GUARDED_BY(mutex_);
};

}  // namespace agent::net
