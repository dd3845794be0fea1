#pragma once

#include <exception>
#include <stop_token>

#include "mirrowen/synch/mutex.h"

namespace brannock::transmission {

/// Whose failure it was. A broken channel is often only the consequence of what the far end had to say, so the other
/// two push it aside.
enum class EFault { eOwn, eRemote, eChannel };

/// How a transfer stands: running, or failed with an error. Any thread.
class transfer_state_t {
  public:
    /// Records a failure and ends every wait of the transfer. The first one counts.
    void Fail(std::exception_ptr error, EFault fault) noexcept;

    bool IsFailed() const noexcept { return stop_.stop_requested(); }
    /// Requested when the transfer has failed.
    std::stop_token GetStopToken() const noexcept { return stop_.get_token(); }
    std::exception_ptr GetError() const;
    void RethrowIfFailed() const;

  private:
    mutable synch::mutex_t mutex_;
    std::exception_ptr error_ GUARDED_BY(mutex_);
    /// What `error_` took the place of, at most one. Kept, so that errors are destroyed by the transfer's own thread
    /// alone, at its end.
    std::exception_ptr superseded_ GUARDED_BY(mutex_);
    EFault fault_ GUARDED_BY(mutex_) = EFault::eChannel;
    std::stop_source stop_;
};

}  // namespace brannock::transmission
