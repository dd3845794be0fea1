#pragma once

#include <cstddef>
#include <cstdint>

#include "mirrowen/export.h"

namespace io::file {

/// A device that is read and written at offsets. One thread at a time.
class MIRROWEN_API random_access_dev_t {
  public:
    virtual ~random_access_dev_t();
    /// Size in bytes.
    virtual std::uint64_t GetSize() const = 0;
    /// Reads up to `count` bytes at `offset`; fewer only at the end, 0 beyond it.
    virtual std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t count) = 0;
    /// Writes all bytes at `offset`, growing the device. A device opened for reading throws.
    virtual void WriteAt(std::uint64_t offset, const void* buffer, std::size_t count) = 0;
    /// Makes what was written durable.
    virtual void Flush() = 0;
};

}  // namespace io::file
