#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "mirrowen/export.h"
#include "mirrowen/pool/byte_budget.h"
#include "mirrowen/pool/obj_pool.h"

namespace io::block {

/// The bytes of a block, from a pool. The content of a fresh buffer is undefined. One
/// thread at a time; many may read at once.
class MIRROWEN_API CContentBuf {
  public:
    /// A buffer of `size` bytes from the process's pool of buffers; the last holder's release, on any thread, gives it
    /// back.
    static pool::CPoolPtr<CContentBuf> Alloc(std::size_t size);

    /// A buffer of its own memory that no pool knows; the pool's way to new ones.
    static std::unique_ptr<CContentBuf> Make(std::size_t size);

    /// Shrinks the buffer to its first `size` bytes; a larger `size` throws `exc::CRuntimeExc`
    /// "Content buffer of [%1] bytes cannot be reduced to [%2].".
    void Reduce(std::size_t size);

    std::byte* Data() noexcept { return data_.get(); }
    const std::byte* Data() const noexcept { return data_.get(); }
    std::size_t Size() const noexcept { return size_; }
    /// Bytes of memory behind the buffer, at least Size().
    std::size_t Capacity() const noexcept { return capacity_; }

    /// The share of the byte budget that this buffer draws on; released with it.
    void SetLease(pool::byte_lease_t lease) noexcept { lease_ = std::move(lease); }

    /// Called by the pool when the last holder has let go: the lease is given back, the memory is kept for reuse.
    void Recycle() noexcept;

  private:
    std::unique_ptr<std::byte[]> data_;
    std::size_t capacity_ = 0;
    std::size_t size_ = 0;
    pool::byte_lease_t lease_;
};

}  // namespace io::block
