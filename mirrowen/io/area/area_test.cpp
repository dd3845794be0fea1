#include "mirrowen/io/area/area.h"

#include "mirrowen/exc/runtime_exc.h"

namespace io::area {

namespace {

pool::CPoolPtr<block::CFibBlock> MakeBlock(std::uint64_t offset, std::size_t size) {
    return block::CFibBlock::NewDataBlock(offset, 5, block::CContentBuf::Alloc(size));
}

TEST(AreaKindTest, NumbersBelongToTheInterface) {
    EXPECT_EQ(static_cast<std::uint32_t>(EAreaKind::eData), 1U);
    EXPECT_EQ(static_cast<std::uint32_t>(EAreaKind::eSparse), 2U);
    EXPECT_EQ(static_cast<std::uint32_t>(EAreaKind::eNothing), 3U);
}

TEST(DataAreaTest, DescribesItsOneBlock) {
    const auto block = MakeBlock(8192, 100);
    const CDataArea area(5, block);
    EXPECT_EQ(area.GetId(), 5U);
    EXPECT_EQ(area.GetKind(), EAreaKind::eData);
    EXPECT_EQ(area.GetOffset(), 8192U);
    EXPECT_EQ(area.GetSize(), 100U);
    EXPECT_EQ(area.GetBlockCount(), 1U);
    EXPECT_EQ(area.GetBlock(0).get(), block.get());
    EXPECT_FALSE(area.GetBlock(1));
}

TEST(DataAreaTest, ASparseBlockMakesASparseArea) {
    const CDataArea area(0, block::CFibBlock::NewSparseBlock(4, 0, std::uint64_t{1} << 33));
    EXPECT_EQ(area.GetKind(), EAreaKind::eSparse);
    EXPECT_EQ(area.GetSize(), std::uint64_t{1} << 33);
}

TEST(DataAreaTest, AReleasedBlockGoesBackAtOnceAndItsDescriptionStays) {
    pool::byte_budget_t budget(1 << 20);
    auto content = block::CContentBuf::Alloc(64);
    content->SetLease(budget.AcquireFirst(64));
    CDataArea area(9, block::CFibBlock::NewDataBlock(10, 9, std::move(content)));
    area.ReleaseBlock(1);
    EXPECT_EQ(budget.InUse(), 64U);
    area.ReleaseBlock(0);
    EXPECT_EQ(budget.InUse(), 0U);
    EXPECT_FALSE(area.GetBlock(0));
    EXPECT_EQ(area.GetKind(), EAreaKind::eData);
    EXPECT_EQ(area.GetOffset(), 10U);
    EXPECT_EQ(area.GetSize(), 64U);
}

TEST(DataAreaTest, CarriesTheReadSize) {
    CDataArea area(0, MakeBlock(0, 1));
    EXPECT_EQ(area.GetMeta().GetReadSize(), 0U);
    area.GetMeta().SetReadSize(123);
    EXPECT_EQ(std::as_const(area).GetMeta().GetReadSize(), 123U);
}

TEST(DataAreaTest, NeedsABlock) {
    try {
        const CDataArea area(0, {});
        ADD_FAILURE();
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_EQ(error.Message(), "Data area needs a block.");
    }
}

}  // namespace

}  // namespace io::area
