#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <future>

#include "brannock/transmission/session.h"
#include "brannock/transmission/transfer_state.h"
#include "mirrowen/synch/mutex.h"
#include "mirrowen/util/clock.h"

namespace brannock::transmission {

/// When the reading or the writing under way is given up. Set by the thread that reads or writes, looked at by the
/// watch.
class io_meter_t {
  public:
    io_meter_t(std::chrono::milliseconds idle, std::uint64_t minimumRate) noexcept : idle_(idle), rate_(minimumRate) {}

    /// A wait for the far end starts, or it has just shown life.
    void Touch() noexcept;
    /// `bytes` of a frame are to come or go from now.
    void BeginBytes(std::size_t bytes) noexcept;
    void EndBytes() noexcept { frameAt_ = kNever; }
    /// Nothing is waited for.
    void Rest() noexcept;
    /// The far end has had its time. The text says which limit was passed.
    void CheckExc() const;

  private:
    using point_t = util::IClock::steady_point_t;
    static constexpr point_t kNever = point_t::max();

    const std::chrono::milliseconds idle_;
    const std::uint64_t rate_;
    std::atomic<point_t> idleAt_{kNever};
    std::atomic<point_t> frameAt_{kNever};
};

/// Looks after a transfer from a thread of its session: passed limits and the session's stop request fail it and cancel
/// the device; when this end has been silent for kBusyInterval another thread starts to send signs of life.
class transfer_watch_t {
  public:
    static constexpr std::chrono::milliseconds kBusyInterval = std::chrono::seconds(5);

    /// `beat` is called over and over on a thread of its own once `isBeatDue` has said so; it may block.
    transfer_watch_t(ISession& session, transfer_state_t& state, const io_meter_t& reads, const io_meter_t& writes,
                     std::function<bool()> isBeatDue, std::function<void()> beat);
    ~transfer_watch_t();

    void Start();
    /// The device is cancelled after `time`, whatever the far end does.
    void LimitTo(std::chrono::milliseconds time) noexcept;
    /// Returns when both threads have ended; called with nothing of the transfer left to write.
    void Stop() noexcept;

  private:
    void Watch();
    void CheckExc() const;
    void Beat();
    bool WaitSlice();

    ISession& session_;
    transfer_state_t& state_;
    const io_meter_t& reads_;
    const io_meter_t& writes_;
    const std::function<bool()> isBeatDue_;
    const std::function<void()> beat_;
    std::atomic<std::chrono::steady_clock::time_point> endAt_{std::chrono::steady_clock::time_point::max()};
    synch::mutex_t mutex_;
    std::condition_variable_any changed_;
    bool stopped_ GUARDED_BY(mutex_) = false;
    std::future<void> watcher_;
    std::future<void> beater_;  ///< made by the watcher, read after it has ended
};

}  // namespace brannock::transmission
