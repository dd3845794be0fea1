#pragma once

#include <chrono>
#include <optional>
#include <stop_token>

#include "mirrowen/export.h"
#include "mirrowen/util/clock.h"

namespace synch {

/// A moment by the clock in force after which a wait is given up, or none. A value; cheap to copy.
class MIRROWEN_API deadline_t {
  public:
    /// Never expires.
    deadline_t() noexcept = default;
    static deadline_t Never() noexcept { return {}; }
    static deadline_t After(std::chrono::milliseconds duration);

    bool IsExpired() const;
    /// How long the next slice of a wait may last: the time left, at most `util::kWaitSlice`, at least zero.
    std::chrono::milliseconds NextSlice() const;
    /// The earlier of the two.
    deadline_t Earlier(const deadline_t& other) const;

  private:
    std::optional<util::IClock::steady_point_t> at_;
};

/// Everything that can end a wait early: its deadline and a stop request.
struct wait_limits_t {
    deadline_t deadline;
    std::stop_token stop;
};

}  // namespace synch
