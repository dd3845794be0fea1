#include "tests/support/fake_clock.h"

#include <algorithm>
#include <stdexcept>

#include "tests/support/raw_peer.h"

namespace tests {

namespace {

// Some moment in 2023, so that a time of zero is seen to be a mistake.
constexpr std::chrono::seconds kStart{1'700'000'000};

// More looks than anybody needs between two waits.
constexpr unsigned kManyLooks = 20;

}  // namespace

fake_clock_t::fake_clock_t() = default;

fake_clock_t::~fake_clock_t() = default;

fake_clock_t::steady_point_t fake_clock_t::SteadyNow() const {
    const std::scoped_lock lock(mutex_);
    ++looks_[std::this_thread::get_id()];
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

void fake_clock_t::WaitForWaiting(std::size_t threads) const {
    std::unique_lock lock(mutex_);
    looks_.clear();
    const auto end = std::chrono::steady_clock::now() + kPatience;
    const auto areWaiting = [this] {
        return std::count_if(looks_.begin(), looks_.end(), [](const auto& of) { return of.second >= kManyLooks; });
    };
    while (static_cast<std::size_t>(areWaiting()) < threads) {
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("not so many threads are waiting");
        }
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        lock.lock();
    }
}

std::vector<std::chrono::milliseconds> fake_clock_t::Sleeps() const {
    const std::scoped_lock lock(mutex_);
    return sleeps_;
}

}  // namespace tests
