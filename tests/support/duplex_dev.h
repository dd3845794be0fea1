#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "mirrowen/io/io_dev.h"

namespace tests {

/// A connection in memory: what one end writes the other reads. Each direction holds a bounded number of bytes, so a
/// dialogue that would block on a real connection blocks here too, until the time limit ends it with
/// `exc::CRuntimeExc` "Timed out on the test connection.".
class duplex_dev_t {
  public:
    /// One end. One thread may read while another writes; Close may come from any thread.
    class end_t : public io::io_dev_t {
      public:
        /// Ends both directions: the peer reads what is left and then the end; its writes throw
        /// `exc::CRuntimeExc` "The test connection is closed.".
        virtual void Close() = 0;
        /// Ends the direction to the peer, which reads what is left and then the end.
        virtual void CloseWrite() = 0;
    };

    explicit duplex_dev_t(std::size_t capacity = 65536, std::chrono::milliseconds limit = std::chrono::minutes(2));

    const std::shared_ptr<end_t>& Left() const noexcept { return left_; }
    const std::shared_ptr<end_t>& Right() const noexcept { return right_; }

  private:
    std::shared_ptr<end_t> left_;
    std::shared_ptr<end_t> right_;
};

}  // namespace tests
