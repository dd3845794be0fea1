#include "mirrowen/synch/deadline.h"

#include <algorithm>

namespace synch {

deadline_t deadline_t::After(std::chrono::milliseconds duration) {
    using point_t = util::IClock::steady_point_t;
    const point_t now = util::clock().SteadyNow();
    deadline_t deadline;
    // A duration that the clock cannot count to (milliseconds::max() for "as long as it takes") never ends.
    if (duration <= std::chrono::floor<std::chrono::milliseconds>(point_t::max() - now)) {
        deadline.at_ = now + duration;
    }
    return deadline;
}

bool deadline_t::IsExpired() const {
    return at_ && util::clock().SteadyNow() >= *at_;
}

std::chrono::milliseconds deadline_t::NextSlice() const {
    if (!at_) {
        return util::kWaitSlice;
    }
    // Rounded up: a remaining fraction must not become a wait of zero that is repeated until it is over.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*at_ - util::clock().SteadyNow());
    return std::clamp(left, std::chrono::milliseconds::zero(), util::kWaitSlice);
}

deadline_t deadline_t::Earlier(const deadline_t& other) const {
    if (!at_ || (other.at_ && *other.at_ < *at_)) {
        return other;
    }
    return *this;
}

}  // namespace synch
