#include "mirrowen/posix/unique_fd.h"

#include "mirrowen/posix/syscalls.h"

namespace posix {

void unique_fd_t::reset(int fd) noexcept {
    const int old = std::exchange(fd_, fd);
    if (old >= 0) {
        // Not repeated after EINTR: Linux has released the descriptor by then, and another thread may own its number.
        sys().close(old);
    }
}

}  // namespace posix
