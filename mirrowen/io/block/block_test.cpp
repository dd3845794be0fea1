#include <atomic>
#include <limits>
#include <thread>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/block/block_math.h"
#include "mirrowen/io/block/buf_transform.h"
#include "mirrowen/io/block/content_buf.h"
#include "mirrowen/io/block/content_buf_pool.h"
#include "mirrowen/io/block/fib_block.h"
#include "mirrowen/io/block/volatile_zero_buf.h"
#include "mirrowen/posix/errno_exc.h"

namespace io::block {

namespace {

template <class Action>
std::string MessageOf(Action action) {
    try {
        action();
    } catch (const exc::CException& error) {
        return error.Message();
    }
    return "nothing was thrown";
}

TEST(BlockMathTest, GranularityIsTheStandardSize) {
    EXPECT_EQ(block_math_t(1).GetStandardBlockSize(), 1U);
    EXPECT_EQ(block_math_t(kMaxBlockSize).GetStandardBlockSize(), kMaxBlockSize);
}

TEST(BlockMathTest, GranularityOutOfRangeIsRefused) {
    EXPECT_EQ(MessageOf([] { block_math_t math(0); }), "Block granularity [0] is out of range.");
    EXPECT_EQ(MessageOf([] { block_math_t math(kMaxBlockSize + 1); }), "Block granularity [16777217] is out of range.");
}

TEST(BufTransformTest, NamesAndNumbers) {
    EXPECT_EQ(static_cast<std::uint32_t>(EBufTransformType::eNone), 0xFFFFFFFFU);
    EXPECT_EQ(str_from_buftransformtype(EBufTransformType::eLz4), "lz4");
    EXPECT_EQ(str_from_buftransformtype(EBufTransformType::eZstd), "zstd");
    EXPECT_EQ(str_from_buftransformtype(EBufTransformType::eNone), "none");
    EXPECT_EQ(str_from_buftransformtype(static_cast<EBufTransformType>(77)), "unknown");
}

TEST(BufTransformTest, OnlyRealTypesCompress) {
    EXPECT_TRUE(IsCompression(EBufTransformType::eLz4));
    EXPECT_TRUE(IsCompression(EBufTransformType::eZstd));
    EXPECT_FALSE(IsCompression(EBufTransformType::eNone));
    EXPECT_FALSE(IsCompression(static_cast<EBufTransformType>(77)));
}

TEST(BufTransformTest, HistoryKeepsTheOrder) {
    buf_transforms_history_t history;
    EXPECT_TRUE(history.IsEmpty());
    history.PushTransform(EBufTransformType::eZstd);
    history.PushTransform(EBufTransformType::eLz4);
    EXPECT_FALSE(history.IsEmpty());
    EXPECT_THAT(history.GetTransforms(), ::testing::ElementsAre(EBufTransformType::eZstd, EBufTransformType::eLz4));
}

TEST(BufTransformTest, OnlyAChosenTypeForcesCompression) {
    const SBufCompressionSpec chosen(EBufTransformType::eZstd);
    EXPECT_TRUE(chosen.IsCompressionForced());
    EXPECT_EQ(chosen.GetTransformType(), EBufTransformType::eZstd);
    EXPECT_FALSE(SBufCompressionSpec::GetPreserveSpec().IsCompressionForced());
}

TEST(ContentBufTest, HasTheSizeAskedFor) {
    const auto buffer = CContentBuf::Alloc(5000);
    EXPECT_EQ(buffer->Size(), 5000U);
    EXPECT_GE(buffer->Capacity(), 5000U);
    std::fill_n(buffer->Data(), buffer->Size(), std::byte{1});
    EXPECT_EQ(CContentBuf::Alloc(0)->Size(), 0U);
}

TEST(ContentBufTest, ReducesButNeverGrows) {
    const auto buffer = CContentBuf::Alloc(10);
    buffer->Reduce(4);
    EXPECT_EQ(buffer->Size(), 4U);
    EXPECT_EQ(MessageOf([&] { buffer->Reduce(5); }), "Content buffer of [4] bytes cannot be reduced to [5].");
    buffer->Reduce(4);
    buffer->Reduce(0);
    EXPECT_EQ(buffer->Size(), 0U);
}

TEST(ContentBufTest, MemoryIsReusedAndTheLeaseGivenBack) {
    pool::byte_budget_t budget(1 << 20);
    auto buffer = CContentBuf::Alloc(777777);
    buffer->SetLease(budget.AcquireFirst(777777));
    EXPECT_EQ(budget.InUse(), 777777U);
    const std::byte* const memory = buffer->Data();
    buffer->Reduce(10);
    buffer.reset();
    EXPECT_EQ(budget.InUse(), 0U);
    const auto again = CContentBuf::Alloc(777777);
    EXPECT_EQ(again->Data(), memory);
    EXPECT_EQ(again->Size(), 777777U);
}

TEST(ContentBufTest, MayBeReleasedOnAnotherThread) {
    auto buffer = CContentBuf::Alloc(100);
    std::thread([moved = std::move(buffer)]() mutable { moved.reset(); }).join();
    EXPECT_FALSE(buffer);
}

TEST(ContentBufTest, BuffersAreNeverSharedBetweenThreads) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int number = 1; number <= 4; ++number) {
        threads.emplace_back([&wrong, number] {
            for (std::size_t round = 0; round < 300; ++round) {
                const auto buffer = CContentBuf::Alloc(1000 + round % 3);
                std::fill_n(buffer->Data(), buffer->Size(), static_cast<std::byte>(number));
                const auto block = CFibBlock::NewDataBlock(0, round, buffer);
                const std::byte* const bytes = block->GetDataBlock().GetContent().Data();
                wrong += !std::all_of(bytes, bytes + buffer->Size(),
                                      [number](std::byte byte) { return byte == static_cast<std::byte>(number); });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST(ContentBufPoolTest, TakesTheSmallestThatFits) {
    content_buf_pool_t pool;
    pool.GiveBack(CContentBuf::Make(3 << 20));
    pool.GiveBack(CContentBuf::Make(1 << 20));
    pool.GiveBack(CContentBuf::Make(2 << 20));
    EXPECT_EQ(pool.FreeBytes(), std::size_t{6} << 20);
    const auto taken = pool.TakeFitting((1 << 20) + 1);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->Capacity(), std::size_t{2} << 20);
    EXPECT_EQ(pool.FreeCount(), 2U);
    EXPECT_FALSE(pool.TakeFitting((3 << 20) + 1));
}

TEST(ContentBufPoolTest, ALargeBufferDoesNotServeASmallNeed) {
    content_buf_pool_t pool;
    pool.GiveBack(CContentBuf::Make(1 << 20));
    EXPECT_FALSE(pool.TakeFitting(4096));
    EXPECT_TRUE(pool.TakeFitting(1 << 18));
    pool.GiveBack(CContentBuf::Make(1 << 16));
    EXPECT_TRUE(pool.TakeFitting(1));
}

TEST(ContentBufPoolTest, KeepsABoundedNumberAndTheNewest) {
    content_buf_pool_t pool;
    for (std::size_t i = 0; i <= content_buf_pool_t::kMaxFree; ++i) {
        pool.GiveBack(CContentBuf::Make(100 + i));
    }
    EXPECT_EQ(pool.FreeCount(), content_buf_pool_t::kMaxFree);
    EXPECT_EQ(pool.TakeFitting(100)->Capacity(), 101U);
}

TEST(ContentBufPoolTest, KeepsABoundedNumberOfBytes) {
    content_buf_pool_t pool;
    for (int i = 0; i < 20; ++i) {
        pool.GiveBack(CContentBuf::Make(1 << 20));
    }
    EXPECT_EQ(pool.FreeBytes(), content_buf_pool_t::kMaxFreeBytes);
    pool.GiveBack(CContentBuf::Make(content_buf_pool_t::kMaxFreeBytes + 1));
    EXPECT_EQ(pool.FreeBytes(), content_buf_pool_t::kMaxFreeBytes) << "too large to be kept, and displaces nothing";
    pool.GiveBack(CContentBuf::Make(content_buf_pool_t::kMaxFreeBytes));
    EXPECT_EQ(pool.FreeCount(), 1U);
}

TEST(FibBlockTest, DataBlockIsNeitherPackedNorEncrypted) {
    auto content = CContentBuf::Alloc(12);
    const auto* const memory = content->Data();
    const auto block = CFibBlock::NewDataBlock(4096, 3, std::move(content));
    EXPECT_EQ(block->GetIdentity().id, 3U);
    EXPECT_EQ(block->GetIdentity().offset, 4096U);
    EXPECT_EQ(block->GetIdentity().size, 12U);
    EXPECT_FALSE(block->IsSparseBlock());
    EXPECT_FALSE(block->GetDataBlock().IsEncrypted());
    EXPECT_EQ(block->GetDataBlock().GetCompression(), EBufTransformType::eNone);
    EXPECT_EQ(block->GetDataBlock().GetContent().Data(), memory);
}

TEST(FibBlockTest, PackedBlockStandsForMoreBytesThanItHolds) {
    const auto block = CFibBlock::NewBlock({.id = 1, .offset = 5, .size = 1000},
                                           CDataBlock(CContentBuf::Alloc(10), EBufTransformType::eZstd, true));
    EXPECT_EQ(block->GetIdentity().size, 1000U);
    EXPECT_EQ(block->GetDataBlock().GetContent().Size(), 10U);
    EXPECT_TRUE(block->GetDataBlock().IsEncrypted());
    EXPECT_EQ(block->GetDataBlock().GetCompression(), EBufTransformType::eZstd);
}

TEST(FibBlockTest, ARecycledBlockKeepsNothing) {
    pool::byte_budget_t budget(1 << 20);
    auto content = CContentBuf::Alloc(10);
    content->SetLease(budget.AcquireFirst(10));
    auto block = CFibBlock::NewBlock({.id = 1, .offset = 2, .size = 3},
                                     CDataBlock(std::move(content), EBufTransformType::eLz4, true));
    const CFibBlock* const memory = block.get();
    block.reset();
    EXPECT_EQ(budget.InUse(), 0U) << "the content goes back together with its block";
    const auto sparse = CFibBlock::NewSparseBlock(100, 7, std::uint64_t{1} << 40);
    EXPECT_EQ(sparse.get(), memory);
    EXPECT_TRUE(sparse->IsSparseBlock());
    EXPECT_EQ(sparse->GetIdentity().id, 7U);
    EXPECT_EQ(sparse->GetIdentity().offset, 100U);
    EXPECT_EQ(sparse->GetIdentity().size, std::uint64_t{1} << 40);
    EXPECT_FALSE(sparse->GetDataBlock().GetContentPtr());
    EXPECT_FALSE(sparse->GetDataBlock().IsEncrypted());
}

TEST(VolatileZeroBufTest, BytesAreZero) {
    CVolatileZeroBuf zeroes;
    const auto* const bytes = static_cast<const unsigned char*>(zeroes.Get(100000));
    EXPECT_TRUE(std::all_of(bytes, bytes + 100000, [](unsigned char byte) { return byte == 0; }));
    EXPECT_NE(zeroes.Get(0), nullptr);
    EXPECT_EQ(zeroes.Get(5), bytes) << "a smaller need is served by what is there";
}

TEST(VolatileZeroBufTest, AGiantRunCostsAddressSpaceOnly) {
    CVolatileZeroBuf zeroes;
    constexpr std::size_t kGiant = std::size_t{1} << 36;  // a sanitizer's address space has room for it, too
    const auto* const bytes = static_cast<const unsigned char*>(zeroes.Get(kGiant));
    EXPECT_EQ(bytes[0], 0);
    EXPECT_EQ(bytes[kGiant / 2], 0);
    EXPECT_EQ(bytes[kGiant - 1], 0);
}

TEST(VolatileZeroBufTest, MoreThanTheAddressSpaceIsAnErrorAndLeavesTheBufferUsable) {
    CVolatileZeroBuf zeroes;
    const void* const before = zeroes.Get(1);
    for (const std::size_t count : {std::numeric_limits<std::size_t>::max(), std::size_t{1} << 62}) {
        try {
            zeroes.Get(count);
            ADD_FAILURE() << "mapped " << count;
        } catch (const posix::errno_exc_t& error) {
            EXPECT_EQ(error.GetErrno(), ENOMEM);
            EXPECT_THAT(error.Message(), ::testing::StartsWith("Failed to map zero bytes"));
        }
    }
    EXPECT_EQ(zeroes.Get(1), before);
}

}  // namespace

}  // namespace io::block
