#include "mirrowen/io/block/content_buf_pool.h"

#include <algorithm>
#include <utility>

namespace io::block {

namespace {

constexpr std::size_t kSmall = std::size_t{64} << 10;

bool Fits(std::size_t capacity, std::size_t size) {
    return capacity >= size && (capacity <= kSmall || capacity / 4 <= size);
}

}  // namespace

content_buf_pool_t& content_buf_pool_t::Process() {
    static content_buf_pool_t* const pool = new content_buf_pool_t;
    return *pool;
}

std::unique_ptr<CContentBuf> content_buf_pool_t::TakeFitting(std::size_t size) {
    const synch::lock_t lock(mutex_);
    auto best = free_.end();
    for (auto it = free_.begin(); it != free_.end(); ++it) {
        if (Fits((*it)->Capacity(), size) && (best == free_.end() || (*it)->Capacity() < (*best)->Capacity())) {
            best = it;
        }
    }
    if (best == free_.end()) {
        return nullptr;
    }
    std::unique_ptr<CContentBuf> taken = std::move(*best);
    free_.erase(best);
    freeBytes_ -= taken->Capacity();
    return taken;
}

void content_buf_pool_t::GiveBack(std::unique_ptr<CContentBuf> buffer) noexcept {
    buffer->Recycle();
    if (buffer->Capacity() > kMaxFreeBytes) {
        return;
    }
    std::unique_ptr<CContentBuf> excess = std::move(buffer);
    {
        const synch::lock_t lock(mutex_);
        if (free_.size() < free_.capacity()) {
            freeBytes_ += excess->Capacity();
            free_.push_back(std::move(excess));  // within the reserved capacity: cannot throw
        }
    }
    // Freed one by one outside the lock: unmapping a large buffer takes its time.
    do {
        excess = TakeExcess();
    } while (excess);
}

std::unique_ptr<CContentBuf> content_buf_pool_t::TakeExcess() noexcept {
    const synch::lock_t lock(mutex_);
    if (free_.size() <= kMaxFree && freeBytes_ <= kMaxFreeBytes) {
        return nullptr;
    }
    std::unique_ptr<CContentBuf> oldest = std::move(free_.front());
    free_.erase(free_.begin());
    freeBytes_ -= oldest->Capacity();
    return oldest;
}

std::size_t content_buf_pool_t::FreeCount() const {
    const synch::lock_t lock(mutex_);
    return free_.size();
}

std::size_t content_buf_pool_t::FreeBytes() const {
    const synch::lock_t lock(mutex_);
    return freeBytes_;
}

}  // namespace io::block
