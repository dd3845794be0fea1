#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "tarn/blocks/seq_fileblocks_reader.h"

/// Counts the large allocations of this program, which is why it is a program of its own.
namespace {

constexpr std::size_t kLarge = 4096;
std::atomic<std::size_t> largeAllocations{0};

class endless_rstream_t final : public tarn::file_rstream_t {
  public:
    std::string GetPath() override { return "/source"; }
    std::uint64_t GetFileSize() override { return ~std::uint64_t{0}; }
    void SeekTo(std::uint64_t /*offset*/) override {}
    std::uint64_t ReadExc(void* buffer, std::uint64_t count) override {
        *static_cast<char*>(buffer) = 'x';
        return count;
    }
    void FinishRead() override {}
};

TEST(BlockAllocations, ReadingAllocatesNoBufferPerBlockOnceThePoolsAreWarm) {
    constexpr std::uint64_t kBlock = 65536;
    tarn::seq_fileblocks_reader_t reader(std::make_shared<endless_rstream_t>(), kBlock, kBlock * 20000);
    for (int i = 0; i < 4; ++i) {
        ASSERT_NE(reader.ReadNext(), nullptr);
    }
    const std::size_t before = largeAllocations;
    for (int i = 0; i < 10000; ++i) {
        ASSERT_NE(reader.ReadNext(), nullptr);
    }
    EXPECT_EQ(largeAllocations - before, 0U);
}

TEST(BlockAllocations, CounterSeesABuffer) {
    const std::size_t before = largeAllocations;
    ::operator delete(::operator new(2 * kLarge));
    EXPECT_EQ(largeAllocations - before, 1U);
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (size >= kLarge) {
        ++largeAllocations;
    }
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
