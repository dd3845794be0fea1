#include "tests/support/watched_allocations.h"

#include <cstdlib>
#include <new>

namespace tests {

std::atomic<std::size_t> largeAllocations{0};
std::atomic<std::size_t> largestAllocation{0};

namespace {

thread_local int g_countdown = 0;  ///< the allocation that fails, counted from 1; 0 or less for none

void Watch(std::size_t size) {
    if (size >= kLargeAllocation) {
        ++largeAllocations;
    }
    std::size_t seen = largestAllocation;
    while (size > seen && !largestAllocation.compare_exchange_weak(seen, size)) {
    }
}

}  // namespace

failing_allocation_t::failing_allocation_t(int number) noexcept {
    g_countdown = number;
}

failing_allocation_t::~failing_allocation_t() {
    g_countdown = 0;
}

bool failing_allocation_t::HasFailed() const noexcept {
    return g_countdown <= 0;
}

}  // namespace tests

// Not inlined: the compiler would take malloc and free for a mismatched pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (tests::g_countdown > 0 && --tests::g_countdown == 0) {
        throw std::bad_alloc();
    }
    tests::Watch(size);
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
