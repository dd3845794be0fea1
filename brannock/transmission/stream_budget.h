#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <stop_token>
#include <utility>

#include "mirrowen/pool/byte_budget.h"
#include "mirrowen/synch/mutex.h"

namespace brannock::transmission {

/// One stream's draw on the process's byte budget. A stream that holds nothing is always granted its next share, so no
/// stream waits for another for ever. Shares are taken by one thread and may be given back on any.
class stream_budget_t {
  public:
    /// A share; given back with the object.
    class share_t {
      public:
        share_t() noexcept = default;
        share_t(std::shared_ptr<stream_budget_t> stream, pool::byte_lease_t lease) noexcept
            : stream_(std::move(stream)), lease_(std::move(lease)) {}
        share_t(share_t&&) noexcept = default;
        share_t& operator=(share_t&& other) noexcept;
        ~share_t() { reset(); }

        void reset() noexcept;

      private:
        std::shared_ptr<stream_budget_t> stream_;
        pool::byte_lease_t lease_;
    };

    explicit stream_budget_t(pool::byte_budget_t& budget) : budget_(budget) {}

    /// Waits until `size` bytes are free or the stream `self` holds none. Throws `exc::CRuntimeExc` "Waiting for buffer
    /// memory was cancelled." upon `stop`.
    static share_t Acquire(const std::shared_ptr<stream_budget_t>& self, std::size_t size, const std::stop_token& stop);

  private:
    pool::byte_lease_t Take(std::size_t size, const std::stop_token& stop);
    void GiveBack() noexcept;

    pool::byte_budget_t& budget_;
    synch::mutex_t mutex_;
    std::size_t held_ GUARDED_BY(mutex_) = 0;
    std::stop_source drained_ GUARDED_BY(mutex_);  ///< ends a wait of the stream that holds nothing any more
};

}  // namespace brannock::transmission
