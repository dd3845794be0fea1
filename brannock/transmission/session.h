#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <stop_token>

#include "brannock/export.h"

namespace brannock::transmission {

/// What a channel device offers when a wait on it can be ended from another thread (a socket that can be shut down).
/// The engine asks for it by cast. A device without it has to end its own waits: the engine then still notices a silent
/// peer, but can only give up when the device's call returns.
class BRANNOCK_API ICancellable {
  public:
    virtual ~ICancellable();
    /// Ends every Read and Write of the device, those under way and those to come: they throw or report the end. Any
    /// thread; may be called again.
    virtual void Cancel() noexcept = 0;
};

/// What a channel device offers when it belongs to a longer-living session: threads that are reused from item to item,
/// the session's stop request and the running number of its items. The engine asks for it by cast
/// (`dynamic_cast<ISession*>` of the channel device); for a device without it the engine makes a private one for the
/// call.
class BRANNOCK_API ISession : public ICancellable {
  public:
    ~ISession() override;

    /// Runs `work` on a thread of the session and returns its outcome; whatever the session's own thread has bound to
    /// itself is bound to that thread too. Called from any thread that works on a transfer; at least five pieces of
    /// work run at the same time. Throws when no thread can be had.
    virtual std::future<void> Run(std::function<void()> work) = 0;
    /// Asked for when the session is to end; every wait of the engine ends soon after.
    virtual std::stop_token GetStopToken() const = 0;
    /// 0, 1, 2 ... over the items of the session, the same on both ends.
    virtual std::uint64_t NextItemNumber() = 0;
    /// How long the far end may be silent before it is given up.
    virtual std::chrono::milliseconds GetIdleTimeout() const = 0;
    /// The least rate at which the bytes of a frame must come or go, in bytes a second; 0 for no limit. A frame may
    /// take the idle time-out and its bytes at this rate.
    virtual std::uint64_t GetMinimumRate() const = 0;
};

}  // namespace brannock::transmission
