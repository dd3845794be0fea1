#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

#include "mirrowen/util/clock.h"

namespace tests {

/// A clock that stands still unless told otherwise, in force for the life of this object. `SleepFor` notes the pause,
/// moves the time on and returns at once; after a stop request it only notes it. Any thread; one clock at a time.
class fake_clock_t final : public util::IClock {
  public:
    fake_clock_t();
    ~fake_clock_t() override;

    steady_point_t SteadyNow() const override;
    std::chrono::system_clock::time_point SystemNow() const override;
    void SleepFor(std::chrono::milliseconds duration, std::stop_token stop) override;

    /// Moves both times forward.
    void Advance(std::chrono::nanoseconds duration);
    /// Returns when so many threads do nothing but wait: a wait looks at the time again and again, and whoever has work
    /// to do looks at it a few times on the way. Throws `std::runtime_error` when there are never so many.
    void WaitForWaiting(std::size_t threads) const;
    /// Every pause asked for until now.
    std::vector<std::chrono::milliseconds> Sleeps() const;

  private:
    mutable std::mutex mutex_;
    std::chrono::nanoseconds elapsed_{0};
    mutable std::map<std::thread::id, unsigned> looks_;  ///< since the last WaitForWaiting
    std::vector<std::chrono::milliseconds> sleeps_;
    util::scoped_clock_t inForce_{*this};
};

}  // namespace tests
