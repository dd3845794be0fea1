#include <gtest/gtest.h>

#include "tarn/blocks/file_area_dev_factory.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tarn/blocks/rnd_fileblocks_writer.h"
#include "tarn/blocks/seq_fileblocks_reader.h"
#include "tarn/blocks/seq_fileblocks_writer.h"
#include "tests/support/virtual_slot.h"

/// The order of the virtual functions is part of the interfaces.
namespace {

using tests::VirtualSlot;

template <class Writer>
void ExpectWriterSlots() {
    EXPECT_EQ(VirtualSlot(&Writer::GetDisplayName), 1U);
    EXPECT_EQ(VirtualSlot(static_cast<void (Writer::*)(std::shared_ptr<io::area::area_t>)>(&Writer::Write)), 2U);
    EXPECT_EQ(VirtualSlot(static_cast<void (Writer::*)(std::shared_ptr<io::area::IArea>)>(&Writer::Write)), 3U);
    EXPECT_EQ(VirtualSlot(&Writer::Finish), 4U);
    EXPECT_EQ(VirtualSlot(&Writer::WriteBlock), 0U);
}

TEST(BlocksSlots, Writers) {
    ExpectWriterSlots<tarn::rnd_fileblocks_writer_t>();
    ExpectWriterSlots<tarn::seq_fileblocks_writer_t>();
}

TEST(BlocksSlots, Reader) {
    using reader_t = tarn::seq_fileblocks_reader_t;
    EXPECT_EQ(VirtualSlot(&reader_t::ReadNext), 1U);
    EXPECT_EQ(VirtualSlot(&reader_t::GetDisplayName), 2U);
    EXPECT_EQ(VirtualSlot(&reader_t::SetEmptyBlocksMaximum), 3U);
    EXPECT_EQ(VirtualSlot(&reader_t::TryReadBlock), 0U);
    EXPECT_EQ(VirtualSlot(&reader_t::FinishRead), 0U);
    EXPECT_EQ(VirtualSlot(&reader_t::SetReadDataSize), 0U);
}

TEST(BlocksSlots, Token) {
    EXPECT_EQ(VirtualSlot(&tarn::CFileAreaDevToken::GetType), 1U);
    EXPECT_EQ(VirtualSlot(&tarn::CFileAreaDevToken::Path4Log), 2U);
    EXPECT_EQ(VirtualSlot(&tarn::CFileAreaDevToken::Serial), 3U);
    EXPECT_EQ(VirtualSlot(&tarn::CFileAreaDevToken::GetPath), 0U);
}

TEST(BlocksSlots, Factory) {
    using factory_t = tarn::CFileAreaDevFactory;
    EXPECT_EQ(VirtualSlot(&factory_t::EnumTokenTypes), 1U);
    EXPECT_EQ(VirtualSlot(&factory_t::LoadToken), 2U);
    EXPECT_EQ(VirtualSlot(&factory_t::CreateReadDev), 3U);
    EXPECT_EQ(VirtualSlot(&factory_t::CreateWriteDev), 4U);
    EXPECT_EQ(VirtualSlot(&factory_t::CreateWriteDevForHVIR), 5U);
}

}  // namespace
