#include "agent/net/session_threads.h"

#include <exception>
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
    piece_t piece{std::move(work), {}};
    std::future<void> result = piece.done.get_future();
    {
        const synch::lock_t lock(mutex_);
        queue_.push_back(std::move(piece));
        if (idle_ < queue_.size()) {
            threads_.emplace_back([this] { Loop(); });
        }
    }
    wake_.notify_one();
    return result;
}

void session_threads_t::Loop() {
    const std::shared_ptr<void> scope = scope_ ? scope_() : nullptr;
    BecomeIdle();
    while (std::optional<piece_t> piece = Next()) {
        std::exception_ptr failure;
        try {
            piece->work();
        } catch (...) {
            failure = std::current_exception();
        }
        // Before the result is there: whoever waits for it may bring the next piece, which must not need a new thread.
        BecomeIdle();
        failure ? piece->done.set_exception(failure) : piece->done.set_value();
    }
}

void session_threads_t::BecomeIdle() {
    const synch::lock_t lock(mutex_);
    ++idle_;
}

std::optional<session_threads_t::piece_t> session_threads_t::Next() {
    synch::lock_t lock(mutex_);
    while (queue_.empty() && !stopping_) {
        wake_.wait(lock.Native());
    }
    --idle_;
    if (queue_.empty()) {
        return std::nullopt;
    }
    std::optional<piece_t> piece(std::move(queue_.front()));
    queue_.pop_front();
    return piece;
}

}  // namespace agent::net
