#pragma once

#include <chrono>
#include <stop_token>

#include "mirrowen/export.h"

namespace util {

/// Where the house gets its time from, so that tests reach every time-out and retry pause without waiting.
class MIRROWEN_API IClock {
  public:
    using steady_point_t = std::chrono::steady_clock::time_point;

    virtual ~IClock();

    /// For deadlines and rates: never goes back. Any thread.
    virtual steady_point_t SteadyNow() const = 0;
    /// Wall clock, for time stamps only. Any thread.
    virtual std::chrono::system_clock::time_point SystemNow() const = 0;
    /// Pauses the calling thread; ends early when `stop` is asked for.
    virtual void SleepFor(std::chrono::milliseconds duration, std::stop_token stop) = 0;
};

/// The clock in force: the system's, unless a test put another one in place.
MIRROWEN_API IClock& clock() noexcept;

/// Puts `replacement` in force for the life of this object (tests; one at a time).
class MIRROWEN_API scoped_clock_t {
  public:
    explicit scoped_clock_t(IClock& replacement) noexcept;
    ~scoped_clock_t();
    scoped_clock_t(const scoped_clock_t&) = delete;
    scoped_clock_t& operator=(const scoped_clock_t&) = delete;

  private:
    IClock* previous_;
};

/// Pauses the calling thread for `milliseconds` by the clock in force; zero and negative values return at once.
MIRROWEN_API void sleep(int milliseconds);

/// Waits (on sockets, condition variables) are cut into slices of this length, so that a stop request or an injected
/// clock is noticed within one of them.
inline constexpr std::chrono::milliseconds kWaitSlice{20};

}  // namespace util
