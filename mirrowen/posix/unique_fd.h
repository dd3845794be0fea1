#pragma once

#include <utility>

#include "mirrowen/export.h"

namespace posix {

/// Owns a file descriptor and closes it. Move-only; -1 is "none". Not for sharing between threads.
class MIRROWEN_API unique_fd_t {
  public:
    unique_fd_t() noexcept = default;
    explicit unique_fd_t(int fd) noexcept : fd_(fd) {}
    unique_fd_t(unique_fd_t&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd_t& operator=(unique_fd_t&& other) noexcept {
        if (this != &other) {
            reset(std::exchange(other.fd_, -1));
        }
        return *this;
    }
    ~unique_fd_t() { reset(); }

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }
    /// Closes what is held (an error of close is ignored: nothing can be done about it) and takes `fd`.
    void reset(int fd = -1) noexcept;

  private:
    int fd_ = -1;
};

}  // namespace posix
