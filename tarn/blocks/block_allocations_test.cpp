#include <new>

#include <gtest/gtest.h>

#include "tarn/blocks/seq_fileblocks_reader.h"
#include "tests/support/watched_allocations.h"

namespace {

using tests::largeAllocations;

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
    ::operator delete(::operator new(2 * tests::kLargeAllocation));
    EXPECT_EQ(largeAllocations - before, 1U);
}

}  // namespace
