#include "mirrowen/util/clock.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace util {

namespace {

class system_clock_t final : public IClock {
  public:
    steady_point_t SteadyNow() const override { return std::chrono::steady_clock::now(); }

    std::chrono::system_clock::time_point SystemNow() const override { return std::chrono::system_clock::now(); }

    void SleepFor(std::chrono::milliseconds duration, std::stop_token stop) override {
        std::mutex mutex;
        std::condition_variable_any stopped;
        std::unique_lock lock(mutex);
        // Nobody makes the condition true: the wait ends by time or by the stop request.
        stopped.wait_for(lock, std::move(stop), duration, [] { return false; });
    }
};

// Never destroyed, so that code running at exit still has a clock.
IClock& system_clock() {
    static auto* const instance = new system_clock_t;
    return *instance;
}

constinit std::atomic<IClock*> g_replacement{nullptr};

}  // namespace

IClock::~IClock() = default;

IClock& clock() noexcept {
    IClock* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : system_clock();
}

scoped_clock_t::scoped_clock_t(IClock& replacement) noexcept : previous_(g_replacement.exchange(&replacement)) {}

scoped_clock_t::~scoped_clock_t() {
    g_replacement.store(previous_);
}

void sleep(int milliseconds) {
    if (milliseconds > 0) {
        clock().SleepFor(std::chrono::milliseconds(milliseconds), {});
    }
}

}  // namespace util
