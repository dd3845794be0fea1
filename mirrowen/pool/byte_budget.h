#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "mirrowen/export.h"
#include "mirrowen/synch/deadline.h"

namespace pool {

namespace detail {
struct byte_budget_state_t;
}

/// A share of a budget, given back on destruction. Move-only; may be released on any thread and may outlive the budget.
class MIRROWEN_API byte_lease_t {
  public:
    byte_lease_t() noexcept = default;
    byte_lease_t(byte_lease_t&& other) noexcept;
    byte_lease_t& operator=(byte_lease_t&& other) noexcept;
    ~byte_lease_t();

    std::size_t Size() const noexcept { return size_; }
    void reset() noexcept;

  private:
    friend class byte_budget_t;
    byte_lease_t(std::shared_ptr<detail::byte_budget_state_t> owner, std::size_t size) noexcept;

    std::shared_ptr<detail::byte_budget_state_t> owner_;
    std::size_t size_ = 0;
};

/// How many bytes of pooled buffers the whole process may hold, so that many transfers at once do not exhaust memory.
/// Any thread.
class MIRROWEN_API byte_budget_t {
  public:
    /// The process's budget (kDefaultProcessBudget until SetLimit).
    static byte_budget_t& Process() noexcept;

    explicit byte_budget_t(std::uint64_t limit);
    byte_budget_t(const byte_budget_t&) = delete;
    byte_budget_t& operator=(const byte_budget_t&) = delete;
    ~byte_budget_t();

    /// Waits until `size` bytes fit under the limit. Throws `exc::CRuntimeExc` "Timed out waiting for buffer memory."
    /// or "Waiting for buffer memory was cancelled.".
    byte_lease_t Acquire(std::size_t size, const synch::wait_limits_t& limits);

    /// Takes `size` bytes even over the limit and never waits. The first buffer of a stream is taken this way, so that
    /// every stream can move and none waits for another for ever.
    byte_lease_t AcquireFirst(std::size_t size) noexcept;

    void SetLimit(std::uint64_t limit) noexcept;
    std::uint64_t InUse() const noexcept;

  private:
    std::shared_ptr<detail::byte_budget_state_t> state_;
};

/// 64 MiB: both ends of a transfer stay well under 128 MiB of memory.
inline constexpr std::uint64_t kDefaultProcessBudget = std::uint64_t{64} << 20;

}  // namespace pool
