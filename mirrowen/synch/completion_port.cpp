#include "mirrowen/synch/completion_port.h"

#include <utility>

namespace synch {

void completion_port_t::PostError(std::exception_ptr error) {
    if (!error) {
        return;
    }
    const lock_t lock(mutex_);
    if (!error_) {
        error_ = std::move(error);
    }
}

void completion_port_t::CheckForErrorsExc() const {
    std::exception_ptr first;
    {
        const lock_t lock(mutex_);
        first = error_;
    }
    if (first) {
        std::rethrow_exception(first);
    }
}

}  // namespace synch
