#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <optional>

#include "brannock/transmission/channel_link.h"
#include "mirrowen/synch/mutex.h"

namespace brannock::transmission {

/// What the receiver tells the sender: how many blocks it may send and how the item ended there.
class reverse_side_t {
  public:
    explicit reverse_side_t(channel_link_t& link) : link_(link), limit_(link.window) {}

    /// Reads frames up to STATUS and not a byte further; a result that is not ok fails the transfer with the receiver's
    /// text, so does whatever ends the reading early.
    void ReadToStatus() noexcept;

    /// Waits until block `index` may go. False when the transfer has failed.
    bool WaitForCredit(std::uint64_t index);
    /// Everything was sent: an ok is due.
    void ExpectStatus() noexcept { ended_ = true; }

    /// What the receiver said, once ReadToStatus has returned.
    const std::optional<status_record_t>& GetStatus() const noexcept { return status_; }

  private:
    void ReadFrame();
    void TakeCredit(std::uint64_t limit);

    channel_link_t& link_;
    std::atomic<bool> ended_ = false;
    std::optional<status_record_t> status_;
    synch::mutex_t mutex_;
    std::condition_variable_any changed_;
    std::uint64_t limit_ GUARDED_BY(mutex_);
    std::uint64_t next_ GUARDED_BY(mutex_) = 0;
};

}  // namespace brannock::transmission
