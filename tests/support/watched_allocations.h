#pragma once

#include <atomic>
#include <cstddef>

/// What the memory of a test program is asked for: the program links tarn_test_allocations, whose operator new and
/// delete take the place of the usual ones.
namespace tests {

inline constexpr std::size_t kLargeAllocation = 4096;

/// How many allocations had kLargeAllocation bytes or more, on any thread.
extern std::atomic<std::size_t> largeAllocations;
/// Bytes of the largest one since this was set to 0.
extern std::atomic<std::size_t> largestAllocation;

/// While it lives, one allocation of the thread that made it fails with `std::bad_alloc`. One at a time.
class failing_allocation_t {
  public:
    /// The `number`-th from here on fails, counted from 1.
    explicit failing_allocation_t(int number) noexcept;
    ~failing_allocation_t();
    failing_allocation_t(const failing_allocation_t&) = delete;
    failing_allocation_t& operator=(const failing_allocation_t&) = delete;

    /// Whether it has come to that.
    bool HasFailed() const noexcept;
};

}  // namespace tests
