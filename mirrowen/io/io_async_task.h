#pragma once

#include <exception>

#include "mirrowen/export.h"

namespace io {

/// What is told when an asynchronous read ends. Exactly one of the two is called for a read, on a thread of the
/// reader's; neither may throw or wait for the handle that it belongs to.
class MIRROWEN_API io_async_task_t {
  public:
    virtual ~io_async_task_t();
    /// `count` bytes are in the buffer; fewer than asked only at the end of the file.
    virtual void Complete(unsigned long count) = 0;
    virtual void Failed(std::exception& error) = 0;
};

}  // namespace io
