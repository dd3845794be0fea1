#pragma once

#include <cstddef>

#include "mirrowen/export.h"

namespace io::block {

/// A source of zero bytes. One thread at a time.
class MIRROWEN_API CVolatileZeroBuf {
  public:
    CVolatileZeroBuf() noexcept = default;
    CVolatileZeroBuf(const CVolatileZeroBuf&) = delete;
    CVolatileZeroBuf& operator=(const CVolatileZeroBuf&) = delete;
    ~CVolatileZeroBuf();

    /// `count` readable zero bytes, valid until the next call or the end of this object. They are mapped from the
    /// kernel's zero page, so even a giant count costs address space and no memory. Throws `posix::errno_exc_t` "Failed
    /// to map zero bytes" when the address space is used up.
    const void* Get(std::size_t count);

  private:
    void* base_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace io::block
