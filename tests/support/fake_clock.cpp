#include "tests/support/fake_clock.h"

namespace tests {

namespace {

// Some moment in 2023, so that a time of zero is seen to be a mistake.
constexpr std::chrono::seconds kStart{1'700'000'000};

}  // namespace

fake_clock_t::fake_clock_t() = default;

fake_clock_t::~fake_clock_t() = default;

fake_clock_t::steady_point_t fake_clock_t::SteadyNow() const {
    const std::scoped_lock lock(mutex_);
    return steady_point_t(kStart + elapsed_);
}

std::chrono::system_clock::time_point fake_clock_t::SystemNow() const {
    const std::scoped_lock lock(mutex_);
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(kStart + elapsed_));
}

void fake_clock_t::SleepFor(std::chrono::milliseconds duration, std::stop_token stop) {
    const std::scoped_lock lock(mutex_);
    sleeps_.push_back(duration);
    if (!stop.stop_requested()) {
        elapsed_ += duration;
    }
}

void fake_clock_t::Advance(std::chrono::nanoseconds duration) {
    const std::scoped_lock lock(mutex_);
    elapsed_ += duration;
}

std::vector<std::chrono::milliseconds> fake_clock_t::Sleeps() const {
    const std::scoped_lock lock(mutex_);
    return sleeps_;
}

}  // namespace tests
