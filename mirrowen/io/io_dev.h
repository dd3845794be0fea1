#pragma once

#include <cstddef>

#include "mirrowen/export.h"

namespace io {

/// A byte channel or device with a position of its own: a socket, a buffer in memory, one end of a pipe.
///
/// One thread may read while another writes; two threads never do the same at once.
class MIRROWEN_API io_dev_t {
  public:
    virtual ~io_dev_t();

    /// Reads up to `count` bytes into `buffer`, waiting for at least one unless the device is at its end. Returns the
    /// count read; 0 means the end (the peer has closed, the buffer is used up) or `count` == 0. Failures of the device
    /// throw (time-out, reset, cancelled), naming what failed.
    virtual std::size_t Read(void* buffer, std::size_t count) = 0;

    /// Writes up to `count` bytes and returns how many the device took; less than `count` means that it takes no more.
    /// Failures throw as for Read. Data may sit in a buffer of the device until Flush.
    virtual std::size_t Write(const void* buffer, std::size_t count) = 0;

    /// Hands buffered data on. Nothing for a device without a buffer.
    virtual void Flush() = 0;
};

}  // namespace io
