#include "agent/batch/batch_packer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <span>
#include <string>
#include <vector>

#include "agent/batch/batch_format.h"
#include "agent/batch/unpacked_batch.h"
#include "mirrowen/guid/guid.h"
#include "tests/support/caught.h"
#include "tests/support/faulty_syscalls.h"

namespace agent::batch {
namespace {

const guid::guid_t kCopy = guid::guid_t::FromAStr("{00112233-4455-4677-8899-aabbccddeeff}");

item_t Item(EItemKind kind, const std::string& path, std::uint64_t entry) {
    item_t item;
    item.kind = kind;
    item.copy = kCopy;
    item.path = path;
    item.entry = entry;
    item.deferred = true;
    item.info.type = kind == EItemKind::eFile        ? util::EFileType::eRegular
                     : kind == EItemKind::eDirectory ? util::EFileType::eDirectory
                                                     : util::EFileType::eSymlink;
    item.info.mode = 0640;
    item.info.modificationTime = {12345, 678};
    return item;
}

extent_t Extent(std::uint64_t offset, std::string_view text) {
    return {offset, std::as_bytes(std::span(text))};
}

TEST(BatchPacker, FilesDirectoriesAndLinksBecomeTheCommandsOfTheForm) {
    batch_packer_t packer;
    EXPECT_TRUE(packer.IsEmpty());
    const std::vector<extent_t> content = {Extent(0, "begin"), Extent(10, "end")};
    packer.Add(Item(EItemKind::eFile, "dir/file", 0), content, 20);
    packer.Add(Item(EItemKind::eFile, "dir/empty", 1), {}, 0);
    packer.Add(Item(EItemKind::eDirectory, "dir", 2), {}, 0);
    item_t link = Item(EItemKind::eLink, "link", 3);
    link.second = "to/somewhere";
    packer.Add(link, {}, 0);
    EXPECT_FALSE(packer.IsEmpty());

    const batch_t batch = packer.Finish();
    const unpacked_batch_t unpacked(batch);
    EXPECT_EQ(batch.total, unpacked.streamBytes);
    EXPECT_FALSE(batch.unsynced);
    ASSERT_EQ(unpacked.entries.size(), 4u);
    EXPECT_EQ(batch.items.front().firstPath, "00112233445546778899aabbccddeeff/1");
    EXPECT_EQ(batch.items.back().firstPath, "00112233445546778899aabbccddeeff/4");

    const unpacked_entry_t& file = unpacked.entries[0];
    EXPECT_EQ(file.commands, "fwwm");
    EXPECT_EQ(file.writes, (std::vector<std::uint64_t>{0, 10}));
    EXPECT_EQ(file.content, std::string("begin\0\0\0\0\0end\0\0\0\0\0\0\0", 20));
    EXPECT_EQ(file.value, 20u);
    EXPECT_EQ(file.item.path, "dir/file");
    EXPECT_EQ(file.item.info, Item(EItemKind::eFile, "", 0).info);
    EXPECT_EQ(unpacked.entries[1].commands, "fm");
    EXPECT_EQ(unpacked.entries[2].commands, "dm");
    EXPECT_EQ(unpacked.entries[2].item.info.mode, 0640u);
    EXPECT_EQ(unpacked.entries[3].commands, "fwm");
    EXPECT_EQ(unpacked.entries[3].value, 12u);
    EXPECT_EQ(unpacked.entries[3].item.second, "to/somewhere");
}

TEST(BatchPacker, ItemThatCannotBePackedLeavesTheBatchAsItWas) {
    batch_packer_t packer;
    packer.Add(Item(EItemKind::eFile, "good", 0), {}, 0);
    item_t bad = Item(EItemKind::eFile, "bad", 1);
    bad.info.mode = 1 << 20;
    EXPECT_EQ(tests::Catch([&] { packer.Add(bad, {}, 0); }).message, "Invalid file info: mode is out of range.");
    EXPECT_EQ(tests::Catch([&] { packer.Add(Item(EItemKind::eFile, "", 1), {}, 0); }).message,
              "Invalid item []: it has no path.");
    packer.Add(Item(EItemKind::eFile, "next", 1), {}, 0);
    EXPECT_EQ(unpacked_batch_t(packer.Finish()).entries.size(), 2u);
}

TEST(BatchPacker, IsFullWithTheBytesOrTheEntriesOfABatch) {
    batch_packer_t packer;
    const std::string large(kBatchPayload, 'x');
    packer.Add(Item(EItemKind::eFile, "a", 0), {}, 0);
    EXPECT_FALSE(packer.IsFull());
    const extent_t extent = Extent(0, large);
    packer.Add(Item(EItemKind::eFile, "b", 1), std::span(&extent, 1), large.size());
    EXPECT_TRUE(packer.IsFull());
    EXPECT_EQ(unpacked_batch_t(packer.Finish()).entries[1].content, large);
    for (std::size_t i = 0; i < kMaxBatchEntries; ++i) {
        EXPECT_FALSE(packer.IsFull()) << i;
        packer.Add(Item(EItemKind::eFile, "c", i), {}, 0);
    }
    EXPECT_TRUE(packer.IsFull());
}

TEST(BatchPacker, LargestFileWithTheMostAttributesStaysWithinWhatAReceiverTakes) {
    batch_packer_t packer;
    const std::string nearlyFull(kBatchPayload - 4096, 'x');
    const std::string large(kMaxBatchFile, 'y');
    const extent_t first = Extent(0, nearlyFull);
    const extent_t second = Extent(0, large);
    packer.Add(Item(EItemKind::eFile, "a", 0), std::span(&first, 1), nearlyFull.size());
    ASSERT_FALSE(packer.IsFull());
    item_t item = Item(EItemKind::eFile, "b", 1);
    for (int i = 0; i < 15; ++i) {
        item.info.attributes.push_back({"user." + std::to_string(i), std::string(util::kMaxAttributeValue, 'z')});
    }
    packer.Add(item, std::span(&second, 1), large.size());
    EXPECT_LT(packer.Finish().total, kMaxBatchPayload);
}

TEST(BatchPacker, EachBatchHasItsOwnFileWithoutAName) {
    batch_packer_t packer;
    packer.Add(Item(EItemKind::eFile, "a", 0), {}, 0);
    const batch_t first = packer.Finish();
    packer.Add(Item(EItemKind::eFile, "b", 1), {}, 0);
    item_t last = Item(EItemKind::eFile, "c", 2);
    last.unsynced = true;
    packer.Add(last, {}, 0);
    const batch_t second = packer.Finish();
    EXPECT_TRUE(second.unsynced);
    EXPECT_EQ(unpacked_batch_t(first).entries[0].item.path, "a");
    EXPECT_EQ(unpacked_batch_t(second).entries[1].item.path, "c");
    struct stat examined {};
    ASSERT_EQ(::fstat(first.file->GetDescriptor(), &examined), 0);
    EXPECT_EQ(examined.st_nlink, 0u);
    ASSERT_EQ(::fstat(second.file->GetDescriptor(), &examined), 0);
    EXPECT_EQ(examined.st_nlink, 0u);
}

TEST(BatchPacker, BatchOutlivesItsPacker) {
    auto packer = std::make_unique<batch_packer_t>();
    packer->Add(Item(EItemKind::eFile, "a", 0), {}, 0);
    const batch_t batch = packer->Finish();
    packer.reset();
    EXPECT_EQ(unpacked_batch_t(batch).entries.size(), 1u);
}

TEST(BatchPacker, BatchThatCannotBeWrittenIsLostAndTheNextIsNot) {
    batch_packer_t packer;
    packer.Add(Item(EItemKind::eFile, "a", 0), {}, 0);
    {
        tests::faulty_syscalls_t calls;
        calls.Fail<&posix::syscalls_t::write>(ENOSPC);
        EXPECT_NE(tests::Catch([&] { packer.Finish(); }).what.find("No space left on device"), std::string::npos);
    }
    EXPECT_TRUE(packer.IsEmpty());
    packer.Add(Item(EItemKind::eFile, "b", 0), {}, 0);
    const unpacked_batch_t unpacked(packer.Finish());
    ASSERT_EQ(unpacked.entries.size(), 1u);
    EXPECT_EQ(unpacked.entries[0].item.path, "b");
}

TEST(BatchPacker, TakesFilesDirectoriesAndLinksWithAttributesAndNothingElse) {
    for (const EItemKind kind : {EItemKind::eFile, EItemKind::eDirectory, EItemKind::eLink}) {
        EXPECT_TRUE(batch_packer_t::Takes(Item(kind, "a", 0))) << NameOfKind(kind);
    }
    for (const EItemKind kind : {EItemKind::eHardLink, EItemKind::eCommit}) {
        EXPECT_FALSE(batch_packer_t::Takes(Item(kind, "a", 0))) << NameOfKind(kind);
    }
    item_t item = Item(EItemKind::eFile, "a", 0);
    item.info = {};
    EXPECT_FALSE(batch_packer_t::Takes(item));
    item = Item(EItemKind::eFile, "a", 0);
    item.startOffset = 1;
    EXPECT_FALSE(batch_packer_t::Takes(item));
    item = Item(EItemKind::eFile, "a", 0);
    item.resumable = true;
    EXPECT_FALSE(batch_packer_t::Takes(item));
}

}  // namespace
}  // namespace agent::batch
