#include "brannock/transmission/stream_budget.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace brannock::transmission {

stream_budget_t::share_t& stream_budget_t::share_t::operator=(share_t&& other) noexcept {
    if (this != &other) {
        reset();
        stream_ = std::move(other.stream_);
        lease_ = std::move(other.lease_);
    }
    return *this;
}

void stream_budget_t::share_t::reset() noexcept {
    lease_.reset();
    if (const auto stream = std::exchange(stream_, nullptr)) {
        stream->GiveBack();
    }
}

stream_budget_t::share_t stream_budget_t::Acquire(const std::shared_ptr<stream_budget_t>& self, std::size_t size,
                                                  const std::stop_token& stop) {
    return share_t(self, self->Take(size, stop));
}

pool::byte_lease_t stream_budget_t::Take(std::size_t size, const std::stop_token& stop) {
    std::stop_source wait;
    {
        const synch::lock_t lock(mutex_);
        if (held_++ == 0) {
            return budget_.AcquireFirst(size);
        }
        drained_ = wait;
    }
    const std::stop_callback forward(stop, [&wait] { wait.request_stop(); });
    try {
        return budget_.Acquire(size, {synch::deadline_t::Never(), wait.get_token()});
    } catch (...) {
        if (stop.stop_requested()) {
            GiveBack();
            throw;
        }
    }
    return budget_.AcquireFirst(size);  // everything else of this stream was given back meanwhile
}

void stream_budget_t::GiveBack() noexcept {
    const synch::lock_t lock(mutex_);
    if (--held_ == 1) {
        drained_.request_stop();  // the one that is left may be a wait
    }
}

}  // namespace brannock::transmission
