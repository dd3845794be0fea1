#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/synch/completion_port.h"
#include "tarn/export.h"

namespace tarn {

/// A write stream over one file of any backend. Handed out and held by `std::shared_ptr`; used by one thread at a time.
/// A caller that needs to know that the data is durable calls `Flush` and then `Close`. Dropping the last reference
/// without `Close` does not lose the file: the destructor closes what is open and only logs a failure.
class TARN_API file_wstream_t {
  public:
    virtual ~file_wstream_t();

    /// Sets the position, in bytes from the start; the next write starts there. A backend without seeking throws.
    virtual void SeekTo(std::uint64_t offset) = 0;

    /// Writes all `count` bytes at the position, advances it and returns `count`; anything less throws.
    virtual std::uint64_t WriteExc(const void* buffer, std::uint64_t count) = 0;

    /// Writes `count` zero bytes, or leaves a hole that reads as zeroes where the backend can, advances the position
    /// and returns `count`.
    virtual std::uint64_t WriteZeroes(std::uint64_t count) = 0;

    /// The path of the file, as the backend writes it.
    virtual std::string GetPath() = 0;

    /// Pushes buffered data to the storage; on a host file the data is durable when it returns.
    virtual void Flush() = 0;

    /// Finishes the file. A backend that completes the close on another thread reports through `port`; the others close
    /// at once and neither post to `port` nor keep it. `port` may be empty.
    virtual void Close(std::shared_ptr<synch::completion_port_t> port) = 0;
};

}  // namespace tarn
