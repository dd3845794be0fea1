#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "mirrowen/util/clock.h"

namespace tests {

/// A clock that stands still unless told otherwise, in force for the life of this object. A pause is noted, moves the
/// time on and returns at once; after a stop request it is only noted. Any thread; one clock at a time. A thread that
/// looks at the clock while this object goes, a server's that ends with the test, finds it still there.
class fake_clock_t final {
  public:
    using steady_point_t = util::IClock::steady_point_t;

    fake_clock_t();
    ~fake_clock_t();
    fake_clock_t(const fake_clock_t&) = delete;
    fake_clock_t& operator=(const fake_clock_t&) = delete;

    steady_point_t SteadyNow() const;
    std::chrono::system_clock::time_point SystemNow() const;

    /// Moves both times forward.
    void Advance(std::chrono::nanoseconds duration);
    /// Returns when so many threads do nothing but wait: a wait looks at the time again and again, and whoever has work
    /// to do looks at it a few times on the way. Throws `std::runtime_error` when there are never so many.
    void WaitForWaiting(std::size_t threads) const;
    /// Every pause asked for until now.
    std::vector<std::chrono::milliseconds> Sleeps() const;

  private:
    class face_t;
    /// Begins anew.
    static face_t& Face();

    face_t& face_;
    util::scoped_clock_t inForce_;
};

}  // namespace tests
