#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

namespace pool {

template <class T>
class CPoolPtr;

/// A free list of objects of one kind. An object goes back to it when the last `CPoolPtr` lets go, on whatever thread;
/// the list is guarded by the pool's own mutex, and outstanding pointers keep the pool alive.
///
/// `T` must be default-constructible and offer `void Recycle() noexcept`, which drops what the object holds.
template <class T>
class CObjPool : public std::enable_shared_from_this<CObjPool<T>> {
  public:
    /// At most `maxFree` objects wait for reuse; the rest is freed.
    static std::shared_ptr<CObjPool> Create(std::size_t maxFree) {
        return std::shared_ptr<CObjPool>(new CObjPool(maxFree));
    }

    /// A recycled object or a new one.
    CPoolPtr<T> Get() {
        std::unique_ptr<T> object = TakeFree();
        if (!object) {
            object = std::make_unique<T>();
        }
        return CPoolPtr<T>(std::shared_ptr<T>(object.release(), [pool = this->shared_from_this()](T* raw) noexcept {
            pool->GiveBack(std::unique_ptr<T>(raw));
        }));
    }

    std::size_t FreeCount() const {
        const boost::unique_lock<boost::mutex> lock(mutex_);
        return free_.size();
    }

  private:
    explicit CObjPool(std::size_t maxFree) : maxFree_(maxFree) { free_.reserve(maxFree); }

    std::unique_ptr<T> TakeFree() {
        const boost::unique_lock<boost::mutex> lock(mutex_);
        if (free_.empty()) {
            return nullptr;
        }
        std::unique_ptr<T> object = std::move(free_.back());
        free_.pop_back();
        return object;
    }

    void GiveBack(std::unique_ptr<T> object) noexcept {
        object->Recycle();
        const boost::unique_lock<boost::mutex> lock(mutex_);
        if (free_.size() < maxFree_) {
            free_.push_back(std::move(object));  // capacity was reserved: cannot throw
        }
    }

    const std::size_t maxFree_;
    mutable boost::mutex mutex_;
    std::vector<std::unique_ptr<T>> free_;
};

/// Shared hold on a pooled object; `reset` lets go of it at once. May be copied and released on any thread; one pointer
/// is used by one thread at a time.
template <class T>
class CPoolPtr {
  public:
    CPoolPtr() noexcept = default;
    explicit CPoolPtr(std::shared_ptr<T> object) noexcept : object_(std::move(object)) {}

    T* get() const noexcept { return object_.get(); }
    T& operator*() const noexcept { return *object_; }
    T* operator->() const noexcept { return object_.get(); }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    void reset() noexcept { object_.reset(); }

  private:
    std::shared_ptr<T> object_;
};

}  // namespace pool
