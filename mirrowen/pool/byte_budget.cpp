#include "mirrowen/pool/byte_budget.h"

#include <condition_variable>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/synch/mutex.h"

namespace pool {

namespace detail {

struct byte_budget_state_t {
    explicit byte_budget_state_t(std::uint64_t initialLimit) noexcept : limit(initialLimit) {}

    bool HasRoom(std::uint64_t size) const REQUIRES(mutex) { return used <= limit && size <= limit - used; }

    synch::mutex_t mutex;
    std::condition_variable_any changed;
    std::uint64_t limit GUARDED_BY(mutex);
    std::uint64_t used GUARDED_BY(mutex) = 0;
};

}  // namespace detail

byte_lease_t::byte_lease_t(std::shared_ptr<detail::byte_budget_state_t> owner, std::size_t size) noexcept
    : owner_(std::move(owner)), size_(size) {}

byte_lease_t::byte_lease_t(byte_lease_t&& other) noexcept
    : owner_(std::move(other.owner_)), size_(std::exchange(other.size_, 0)) {}

byte_lease_t& byte_lease_t::operator=(byte_lease_t&& other) noexcept {
    if (this != &other) {
        reset();
        owner_ = std::move(other.owner_);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

byte_lease_t::~byte_lease_t() {
    reset();
}

void byte_lease_t::reset() noexcept {
    const std::shared_ptr<detail::byte_budget_state_t> owner = std::move(owner_);
    const std::size_t size = std::exchange(size_, 0);
    if (owner) {
        {
            const synch::lock_t lock(owner->mutex);
            owner->used -= size;
        }
        owner->changed.notify_all();
    }
}

byte_budget_t& byte_budget_t::Process() noexcept {
    // Never destroyed: leases may be given back while the process ends.
    static auto* const instance = new byte_budget_t(kDefaultProcessBudget);
    return *instance;
}

byte_budget_t::byte_budget_t(std::uint64_t limit) : state_(std::make_shared<detail::byte_budget_state_t>(limit)) {}

byte_budget_t::~byte_budget_t() = default;

byte_lease_t byte_budget_t::Acquire(std::size_t size, const synch::wait_limits_t& limits) {
    synch::lock_t lock(state_->mutex);
    while (!state_->HasRoom(size)) {
        if (limits.stop.stop_requested()) {
            throw exc::CRuntimeExc("Waiting for buffer memory was cancelled.");
        }
        if (limits.deadline.IsExpired()) {
            throw exc::CRuntimeExc("Timed out waiting for buffer memory.");
        }
        state_->changed.wait_for(lock.Native(), limits.deadline.NextSlice());
    }
    state_->used += size;
    return byte_lease_t(state_, size);
}

byte_lease_t byte_budget_t::AcquireFirst(std::size_t size) noexcept {
    const synch::lock_t lock(state_->mutex);
    state_->used += size;
    return byte_lease_t(state_, size);
}

void byte_budget_t::SetLimit(std::uint64_t limit) noexcept {
    {
        const synch::lock_t lock(state_->mutex);
        state_->limit = limit;
    }
    state_->changed.notify_all();
}

std::uint64_t byte_budget_t::InUse() const noexcept {
    const synch::lock_t lock(state_->mutex);
    return state_->used;
}

}  // namespace pool
