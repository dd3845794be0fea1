#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "mirrowen/io/block/content_buf.h"
#include "mirrowen/synch/mutex.h"

namespace io::block {

/// Buffers that wait for reuse, oldest first, bounded in number and in bytes. Internal to this folder; any thread.
class content_buf_pool_t {
  public:
    /// What may wait at most. 16 MiB: a second transfer finds its buffers, an idle process holds little.
    static constexpr std::size_t kMaxFree = 64;
    static constexpr std::size_t kMaxFreeBytes = std::size_t{16} << 20;

    /// The process's pool. It is never destroyed, so buffers may come back while the process ends.
    static content_buf_pool_t& Process();

    content_buf_pool_t() { free_.reserve(kMaxFree + 1); }

    /// The waiting buffer that fits `size` bytes best, or null. One more than four times as large (and over 64 KiB)
    /// does not fit: it would hold memory that nobody counts.
    std::unique_ptr<CContentBuf> TakeFitting(std::size_t size);

    /// Keeps `buffer`; the oldest ones go when there are too many.
    void GiveBack(std::unique_ptr<CContentBuf> buffer) noexcept;

    std::size_t FreeCount() const;
    std::size_t FreeBytes() const;

  private:
    std::unique_ptr<CContentBuf> TakeExcess() noexcept;

    mutable synch::mutex_t mutex_;
    std::vector<std::unique_ptr<CContentBuf>> free_ GUARDED_BY(mutex_);
    std::size_t freeBytes_ GUARDED_BY(mutex_) = 0;
};

}  // namespace io::block
