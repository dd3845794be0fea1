#pragma once

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include "mirrowen/synch/thread_annotations.h"

namespace synch {

/// `boost::mutex` with lock annotations. Failures are Boost's: `boost::thread_resource_error` when it cannot be
/// created, `boost::lock_error` "boost: mutex lock failed in pthread_mutex_lock" when it cannot be locked.
class CAPABILITY("mutex") mutex_t : public boost::mutex {
  public:
    void lock() ACQUIRE() { boost::mutex::lock(); }
    bool try_lock() TRY_ACQUIRE(true) { return boost::mutex::try_lock(); }
    void unlock() RELEASE() { boost::mutex::unlock(); }
};

/// `boost::recursive_mutex` with lock annotations.
class CAPABILITY("mutex") recursive_mutex_t : public boost::recursive_mutex {
  public:
    void lock() ACQUIRE() { boost::recursive_mutex::lock(); }
    void unlock() RELEASE() { boost::recursive_mutex::unlock(); }
};

/// Holds a mutex for a scope.
class SCOPED_CAPABILITY lock_t {
  public:
    explicit lock_t(mutex_t& mutex) ACQUIRE(mutex) : lock_(mutex) {}
    /// Takes over a mutex that the thread has locked.
    lock_t(mutex_t& mutex, boost::adopt_lock_t adopt) REQUIRES(mutex) : lock_(mutex, adopt) {}
    ~lock_t() RELEASE() {}
    lock_t(const lock_t&) = delete;
    lock_t& operator=(const lock_t&) = delete;

    /// The lock itself, for waiting on a `boost::condition_variable`.
    boost::unique_lock<boost::mutex>& Native() noexcept { return lock_; }

  private:
    boost::unique_lock<boost::mutex> lock_;
};

/// Holds a recursive mutex for a scope.
class SCOPED_CAPABILITY recursive_lock_t {
  public:
    explicit recursive_lock_t(recursive_mutex_t& mutex) ACQUIRE(mutex) : lock_(mutex) {}
    ~recursive_lock_t() RELEASE() {}
    recursive_lock_t(const recursive_lock_t&) = delete;
    recursive_lock_t& operator=(const recursive_lock_t&) = delete;

  private:
    boost::unique_lock<boost::recursive_mutex> lock_;
};

}  // namespace synch
