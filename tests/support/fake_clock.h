#pragma once

#include <chrono>
#include <mutex>
#include <stop_token>
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
    /// Every pause asked for until now.
    std::vector<std::chrono::milliseconds> Sleeps() const;

  private:
    mutable std::mutex mutex_;
    std::chrono::nanoseconds elapsed_{0};
    std::vector<std::chrono::milliseconds> sleeps_;
    util::scoped_clock_t inForce_{*this};
};

}  // namespace tests
