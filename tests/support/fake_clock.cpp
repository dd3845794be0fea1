#include "tests/support/fake_clock.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <stdexcept>
#include <stop_token>
#include <thread>

#include "tests/support/raw_peer.h"

namespace tests {

namespace {

// Some moment in 2023, so that a time of zero is seen to be a mistake.
constexpr std::chrono::seconds kStart{1'700'000'000};

// More looks than anybody needs between two waits.
constexpr unsigned kManyLooks = 20;

}  // namespace

/// What the code under test sees.
class fake_clock_t::face_t final : public util::IClock {
  public:
    steady_point_t SteadyNow() const override {
        const std::scoped_lock lock(mutex_);
        ++looks_[std::this_thread::get_id()];
        return steady_point_t(kStart + elapsed_);
    }

    std::chrono::system_clock::time_point SystemNow() const override {
        const std::scoped_lock lock(mutex_);
        return std::chrono::system_clock::time_point(
            std::chrono::duration_cast<std::chrono::system_clock::duration>(kStart + elapsed_));
    }

    void SleepFor(std::chrono::milliseconds duration, std::stop_token stop) override {
        const std::scoped_lock lock(mutex_);
        sleeps_.push_back(duration);
        if (!stop.stop_requested()) {
            elapsed_ += duration;
        }
    }

    void BeginAnew() {
        const std::scoped_lock lock(mutex_);
        elapsed_ = {};
        looks_.clear();
        sleeps_.clear();
    }

    void Advance(std::chrono::nanoseconds duration) {
        const std::scoped_lock lock(mutex_);
        elapsed_ += duration;
    }

    void ForgetLooks() {
        const std::scoped_lock lock(mutex_);
        looks_.clear();
    }

    std::size_t CountWaiting() const {
        const std::scoped_lock lock(mutex_);
        return static_cast<std::size_t>(
            std::count_if(looks_.begin(), looks_.end(), [](const auto& of) { return of.second >= kManyLooks; }));
    }

    std::vector<std::chrono::milliseconds> Sleeps() const {
        const std::scoped_lock lock(mutex_);
        return sleeps_;
    }

  private:
    mutable std::mutex mutex_;
    std::chrono::nanoseconds elapsed_{0};
    mutable std::map<std::thread::id, unsigned> looks_;
    std::vector<std::chrono::milliseconds> sleeps_;
};

// Never destroyed: who looks at it last is not known.
fake_clock_t::face_t& fake_clock_t::Face() {
    static auto* const face = new face_t;
    face->BeginAnew();
    return *face;
}

fake_clock_t::fake_clock_t() : face_(Face()), inForce_(face_) {}

fake_clock_t::~fake_clock_t() = default;

fake_clock_t::steady_point_t fake_clock_t::SteadyNow() const {
    return face_.SteadyNow();
}

std::chrono::system_clock::time_point fake_clock_t::SystemNow() const {
    return face_.SystemNow();
}

void fake_clock_t::Advance(std::chrono::nanoseconds duration) {
    face_.Advance(duration);
}

void fake_clock_t::WaitForWaiting(std::size_t threads) const {
    face_.ForgetLooks();
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (face_.CountWaiting() < threads) {
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("not so many threads are waiting");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::vector<std::chrono::milliseconds> fake_clock_t::Sleeps() const {
    return face_.Sleeps();
}

}  // namespace tests
