#include "brannock/transmission/transfer_state.h"

#include <utility>

namespace brannock::transmission {

void transfer_state_t::Fail(std::exception_ptr error, EFault fault) noexcept {
    {
        const synch::lock_t lock(mutex_);
        if (!error_ || (fault_ == EFault::eChannel && fault != EFault::eChannel)) {
            superseded_ = std::exchange(error_, std::move(error));
            fault_ = fault;
        }
    }
    stop_.request_stop();
}

std::exception_ptr transfer_state_t::GetError() const {
    const synch::lock_t lock(mutex_);
    return error_;
}

void transfer_state_t::RethrowIfFailed() const {
    if (const std::exception_ptr error = GetError()) {
        std::rethrow_exception(error);
    }
}

}  // namespace brannock::transmission
