#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/io_async_task.h"
#include "tarn/export.h"

namespace tarn {

/// Overlapped reads of one file. Handed out and held by `std::shared_ptr`. Requests may be issued from one thread at a
/// time; tasks are completed on others. Failures of a read reach its task; those of issuing one are thrown.
class TARN_API IFileAsyncReadHandle {
  public:
    virtual ~IFileAsyncReadHandle();

    /// The path that the file was opened on.
    virtual std::string GetPath() = 0;

    /// Bytes; buffers, offsets and sizes of requests must be multiples of it for the fastest way.
    virtual std::uint64_t GetReadAlignment() const = 0;

    /// Returns when every request issued on the handle has completed.
    virtual void WaitAllRequests() const = 0;

    /// Starts reading `count` bytes at `offset` into `buffer` and returns at once. `task` is told when the data is in
    /// the buffer or the read failed; buffer and task must live until then.
    virtual void ReadAsync(void* buffer, std::uint64_t count, std::uint64_t offset,
                           std::shared_ptr<io::io_async_task_t> task) = 0;
};

}  // namespace tarn
