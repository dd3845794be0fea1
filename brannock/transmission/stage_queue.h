#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <optional>
#include <utility>

#include "brannock/transmission/transfer_state.h"
#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/clock.h"

namespace brannock::transmission {

/// Hands work from one stage of a transfer to the next, at most `capacity` pieces at a time. A failed transfer ends
/// every wait. One thread pushes, one pops.
template <class T>
class stage_queue_t {
  public:
    stage_queue_t(const transfer_state_t& state, std::size_t capacity) : state_(state), capacity_(capacity) {}

    /// Waits for room. False when the transfer has failed; the piece is then dropped.
    bool Push(T piece) {
        synch::lock_t lock(mutex_);
        while (pieces_.size() >= capacity_ && !state_.IsFailed()) {
            changed_.wait_for(lock.Native(), util::kWaitSlice);
        }
        if (state_.IsFailed()) {
            return false;
        }
        pieces_.push_back(std::move(piece));
        changed_.notify_all();
        return true;
    }

    /// Nothing more will be pushed.
    void Close() {
        const synch::lock_t lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

    /// Waits for a piece. Nothing when the queue is closed and empty or the transfer has failed.
    std::optional<T> Pop() {
        synch::lock_t lock(mutex_);
        while (pieces_.empty() && !closed_ && !state_.IsFailed()) {
            changed_.wait_for(lock.Native(), util::kWaitSlice);
        }
        if (pieces_.empty() || state_.IsFailed()) {
            return std::nullopt;
        }
        std::optional<T> piece(std::move(pieces_.front()));
        pieces_.pop_front();
        changed_.notify_all();
        return piece;
    }

  private:
    const transfer_state_t& state_;
    const std::size_t capacity_;
    synch::mutex_t mutex_;
    std::condition_variable_any changed_;
    std::deque<T> pieces_ GUARDED_BY(mutex_);
    bool closed_ GUARDED_BY(mutex_) = false;
};

}  // namespace brannock::transmission
