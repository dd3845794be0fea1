#include "agent/batch/batch_contents.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/batch_kit.h"
#include "tests/support/staging_fixture.h"

namespace agent::batch {
namespace {

using namespace std::string_literals;
using tarn::blobfs::eBlobCmd;
using tests::BlobCommand;
using tests::CreateDirectoryCommand;
using tests::CreateFileCommand;
using tests::MetadataCommand;
using tests::WriteCommand;

const std::string kFirst = "00000000000000000000000000000000/1";

util::CFileInfo InfoOf(util::EFileType type) {
    util::CFileInfo info;
    info.type = type;
    info.owner = {"ann", 1000};
    info.mode = 0640;
    info.modificationTime = {1100000000, 7};
    return info;
}

const util::CFileInfo kFile = InfoOf(util::EFileType::eRegular);
const util::CFileInfo kDirectory = InfoOf(util::EFileType::eDirectory);
const util::CFileInfo kLink = InfoOf(util::EFileType::eSymlink);

std::vector<batch_entry_t> Read(const tests::batch_maker_t& batch) {
    return CheckContents(PlanBatch(*batch.Token()), batch.stream);
}

/// Why one entry of `size` bytes with these commands is refused; empty when it is not.
std::string Refusal(const std::string& commands, std::uint64_t size = 4, const std::string& path = "p") {
    tests::batch_maker_t batch;
    batch.Add(path, size, commands);
    const std::string text = tests::TextOf([&] { Read(batch); });
    const std::string context = "The commands of a batch are refused.\n";
    EXPECT_TRUE(text.empty() || text.rfind(context, 0) == 0) << text;
    return text.empty() ? text : text.substr(context.size());
}

std::string RefusedAt(std::size_t offset, const std::string& fault) {
    return "The command at offset [" + std::to_string(offset) + "] is refused for entry [" + kFirst + "]: " + fault +
           ".";
}

std::string TextOfPiece(const batch_piece_t& piece) {
    return {piece.data.data(), piece.data.size()};
}

TEST(BatchContents, EntriesAreTheItemsThatTheyWouldHaveBeen) {
    tests::batch_maker_t batch(guid::guid_t({9}));
    batch.unsynced = true;
    batch.AddFile("d/file", kFile, "text");
    batch.Add("d/link", 2, CreateFileCommand(batch.NextName()) + WriteCommand(0, "to") + MetadataCommand(kLink));
    batch.AddDirectory("d", kDirectory);
    const std::vector<batch_entry_t> entries = Read(batch);
    ASSERT_EQ(entries.size(), 3U);
    const std::vector<EItemKind> kinds = {EItemKind::eFile, EItemKind::eLink, EItemKind::eDirectory};
    const std::vector<util::CFileInfo> infos = {kFile, kLink, kDirectory};
    const std::vector<std::string> paths = {"d/file", "d/link", "d"};
    for (std::size_t at = 0; at < 3; ++at) {
        const item_t& item = entries[at].item;
        EXPECT_EQ(item.kind, kinds[at]);
        EXPECT_EQ(item.copy, batch.copy);
        EXPECT_EQ(item.path, paths[at]);
        EXPECT_EQ(item.second, at == 1 ? "to" : "");
        EXPECT_EQ(item.entry, at);
        EXPECT_TRUE(item.deferred);
        EXPECT_TRUE(item.unsynced);
        EXPECT_FALSE(item.resumable);
        EXPECT_EQ(item.info, infos[at]);
    }
    EXPECT_EQ(entries[0].size, 4U);
    ASSERT_EQ(entries[0].pieces.size(), 1U);
    EXPECT_EQ(TextOfPiece(entries[0].pieces[0]), "text");
    EXPECT_TRUE(entries[1].pieces.empty());
    EXPECT_TRUE(entries[2].pieces.empty());
}

TEST(BatchContents, WhatIsNotWrittenIsAHole) {
    tests::batch_maker_t batch;
    batch.Add("p", 100,
              CreateFileCommand(kFirst) + WriteCommand(10, "a") + WriteCommand(11, "b") +
                  WriteCommand(90, "0123456789") + MetadataCommand(kFile));
    const std::vector<batch_entry_t> entries = Read(batch);
    ASSERT_EQ(entries.at(0).pieces.size(), 3U);
    EXPECT_EQ(entries[0].size, 100U);
    EXPECT_EQ(entries[0].pieces[0].offset, 10U);
    EXPECT_EQ(entries[0].pieces[1].offset, 11U);
    EXPECT_EQ(entries[0].pieces[2].offset, 90U);
    EXPECT_EQ(TextOfPiece(entries[0].pieces[2]), "0123456789");
}

TEST(BatchContents, FileMayBeEmptyOrAHoleAltogether) {
    EXPECT_EQ(Refusal(CreateFileCommand(kFirst) + MetadataCommand(kFile), 0), "");
    EXPECT_EQ(Refusal(CreateFileCommand(kFirst) + MetadataCommand(kFile), 4194304), "");
}

TEST(BatchContents, EntryBeginsWithItsCreationUnderItsName) {
    EXPECT_EQ(Refusal(WriteCommand(0, "x", kFirst)), RefusedAt(0, "an entry begins with its creation"));
    EXPECT_EQ(Refusal(MetadataCommand(tests::SerialOf(kFile), kFirst)),
              RefusedAt(0, "an entry begins with its creation"));
    for (const std::string& name :
         {""s, "p"s, "../x"s, "/etc/x"s, "00000000000000000000000000000000/2"s, kFirst + "/"}) {
        EXPECT_EQ(Refusal(CreateFileCommand(name)), RefusedAt(0, "its path is not the entry's name")) << name;
        EXPECT_EQ(Refusal(CreateDirectoryCommand(name)), RefusedAt(0, "its path is not the entry's name")) << name;
    }
}

TEST(BatchContents, OverwriteFlagIsThatOfTheKind) {
    EXPECT_EQ(Refusal(CreateFileCommand(kFirst, 0)), RefusedAt(0, "its overwrite flag is wrong"));
    EXPECT_EQ(Refusal(CreateDirectoryCommand(kFirst, 1), 0), RefusedAt(0, "its overwrite flag is wrong"));
    EXPECT_EQ(Refusal(BlobCommand(eBlobCmd::eCreateFile, kFirst, "\1\0"s)), RefusedAt(0, "its body is too long"));
    EXPECT_EQ(Refusal(BlobCommand(eBlobCmd::eCreateFile, kFirst, "")),
              "Blob command of type [2] with a body of [0] bytes is too short.");
}

TEST(BatchContents, DirectoryHasNeitherSizeNorContent) {
    EXPECT_EQ(Refusal(CreateDirectoryCommand(kFirst), 4), RefusedAt(0, "a directory has no size"));
    const std::string creation = CreateDirectoryCommand(kFirst);
    EXPECT_EQ(Refusal(creation + WriteCommand(0, "x"), 0), RefusedAt(creation.size(), "a directory is not written to"));
}

TEST(BatchContents, WritesGoForwardWithinTheSize) {
    const std::string creation = CreateFileCommand(kFirst);
    const auto refusal = [&](const std::string& writes) { return Refusal(creation + writes + MetadataCommand(kFile)); };
    const std::size_t at = creation.size();
    EXPECT_EQ(refusal(WriteCommand(0, "ab") + WriteCommand(2, "cd")), "");
    EXPECT_EQ(refusal(WriteCommand(0, "")), RefusedAt(at, "it writes nothing"));
    EXPECT_EQ(refusal(WriteCommand(0, "abcde")), RefusedAt(at, "it writes beyond the file's size"));
    EXPECT_EQ(refusal(WriteCommand(4, "e")), RefusedAt(at, "it writes beyond the file's size"));
    EXPECT_EQ(refusal(WriteCommand(~std::uint64_t{0}, "e")), RefusedAt(at, "it writes beyond the file's size"));
    const std::size_t second = at + WriteCommand(0, "ab").size();
    EXPECT_EQ(refusal(WriteCommand(0, "ab") + WriteCommand(1, "c")), RefusedAt(second, "it goes back in the file"));
    EXPECT_EQ(refusal(WriteCommand(1, "ab") + WriteCommand(0, "c")), RefusedAt(second, "it goes back in the file"));
    EXPECT_EQ(refusal(WriteCommand(0, "ab", kFirst)), RefusedAt(at, "it has a path of its own"));
}

TEST(BatchContents, BodiesThatAreTooLongAreRefused) {
    const std::string creation = CreateFileCommand(kFirst);
    std::string body(12, '\0');
    body[8] = 1;
    EXPECT_EQ(Refusal(creation + BlobCommand(eBlobCmd::eWriteFile, "", body + "xy")),
              RefusedAt(creation.size(), "its body is too long"));
    EXPECT_EQ(Refusal(creation + BlobCommand(eBlobCmd::eSetFileMetadata, "", "\0\0\0\0x"s)),
              RefusedAt(creation.size(), "its body is too long"));
    EXPECT_EQ(Refusal(creation + MetadataCommand(tests::SerialOf(kFile) + "x")),
              RefusedAt(creation.size(), "its attributes are too long"));
}

TEST(BatchContents, NothingButTheAttributesEndsAnEntry) {
    const std::string creation = CreateFileCommand(kFirst);
    EXPECT_EQ(Refusal(creation + CreateFileCommand(kFirst)),
              RefusedAt(creation.size(), "its type is none of those that may stand here"));
    EXPECT_EQ(Refusal(creation + BlobCommand(static_cast<eBlobCmd>(5), "", "x")),
              RefusedAt(creation.size(), "its type is none of those that may stand here"));
    EXPECT_EQ(Refusal(creation + BlobCommand(static_cast<eBlobCmd>(0), "", "")),
              RefusedAt(creation.size(), "its type is none of those that may stand here"));
    EXPECT_EQ(Refusal(creation + MetadataCommand(tests::SerialOf(kFile), kFirst)),
              RefusedAt(creation.size(), "it has a path of its own"));
}

TEST(BatchContents, AttributesAreThoseOfTheKind) {
    const std::string file = CreateFileCommand(kFirst);
    const std::string directory = CreateDirectoryCommand(kFirst);
    for (const util::EFileType type : {util::EFileType::eRegular, util::EFileType::eSymlink, util::EFileType::eFifo}) {
        EXPECT_EQ(Refusal(directory + MetadataCommand(InfoOf(type)), 0),
                  RefusedAt(directory.size(), "its attributes are not those of a directory"));
    }
    for (const util::EFileType type : {util::EFileType::eDirectory, util::EFileType::eFifo, util::EFileType::eSocket,
                                       util::EFileType::eCharDevice, util::EFileType::eBlockDevice}) {
        EXPECT_EQ(Refusal(file + MetadataCommand(InfoOf(type))),
                  RefusedAt(file.size(), "its attributes are not those of a file or link"));
    }
    EXPECT_EQ(Refusal(file + MetadataCommand(util::CFileInfo())),
              RefusedAt(file.size(), "its attributes are not those of a file or link"));
    EXPECT_EQ(Refusal(directory + MetadataCommand(util::CFileInfo()), 0),
              RefusedAt(directory.size(), "its attributes are not those of a directory"));
}

TEST(BatchContents, DamagedAttributesAreRefused) {
    const std::string serial = tests::SerialOf(kFile);
    for (std::size_t length = 0; length < serial.size(); ++length) {
        EXPECT_NE(Refusal(CreateFileCommand(kFirst) + MetadataCommand(serial.substr(0, length))), "") << length;
    }
}

TEST(BatchContents, LinkIsOneWriteOfItsContent) {
    const std::string creation = CreateFileCommand(kFirst);
    const std::string one = WriteCommand(0, "to");
    const std::string two = WriteCommand(0, "t") + WriteCommand(1, "o");
    EXPECT_EQ(Refusal(creation + one + MetadataCommand(kLink), 2), "");
    EXPECT_EQ(Refusal(creation + two + MetadataCommand(kLink), 2),
              RefusedAt((creation + two).size(), "a link's content is one write"));
    EXPECT_EQ(Refusal(creation + one + MetadataCommand(kLink), 3),
              RefusedAt((creation + one).size(), "a link's content is one write"));
    EXPECT_EQ(Refusal(creation + MetadataCommand(kLink), 0),
              RefusedAt(creation.size(), "a link's content is one write"));
}

TEST(BatchContents, TextsThatNoItemMayHaveAreRefused) {
    const auto link = [](const std::string& target) {
        return Refusal(CreateFileCommand(kFirst) + WriteCommand(0, target) + MetadataCommand(kLink), target.size());
    };
    EXPECT_EQ(link(std::string(4095, 't')), "");
    EXPECT_NE(link(std::string(4096, 't')).find("Invalid item"), std::string::npos);
    EXPECT_NE(link("a\0b"s).find("Invalid item"), std::string::npos);
    const std::string file = CreateFileCommand(kFirst) + MetadataCommand(kFile);
    EXPECT_NE(Refusal(file, 0, "").find("Invalid item"), std::string::npos);
    EXPECT_NE(Refusal(file, 0, "a\0b"s).find("Invalid item"), std::string::npos);
    EXPECT_NE(Refusal(file, 0, std::string(4096, 'p')).find("Invalid item"), std::string::npos);
}

TEST(BatchContents, StreamEndsWithItsLastEntry) {
    tests::batch_maker_t batch;
    batch.AddFile("p", kFile, "text");
    const std::string whole = batch.stream;
    batch.stream += WriteCommand(0, "x");
    EXPECT_EQ(tests::TextOf([&] { Read(batch); }), "The commands of a batch are refused.\nThe command at offset [" +
                                                       std::to_string(whole.size()) +
                                                       "] is refused: the last entry ends before it.");
    batch.stream = whole;
    batch.items.push_back({batch.NextName(), "q", 0});
    EXPECT_EQ(tests::TextOf([&] { Read(batch); }),
              "The commands of a batch are refused.\nThe commands end before the attributes of entry "
              "[00000000000000000000000000000000/2].");
}

TEST(BatchContents, StreamThatIsCutAnywhereIsRefused) {
    tests::batch_maker_t batch;
    batch.AddDirectory("d", kDirectory);
    batch.AddFile("d/p", kFile, "text");
    for (std::size_t length = 0; length < batch.stream.size(); ++length) {
        const std::string cut = batch.stream.substr(0, length);
        EXPECT_THROW(CheckContents(PlanBatch(*batch.Token()), cut), exc::CRuntimeExc) << length;
    }
}

TEST(BatchContents, EntriesInAnotherOrderThanTheTokensAreRefused) {
    tests::batch_maker_t batch;
    batch.AddFile("p", kFile, "text");
    const std::string first = std::exchange(batch.stream, {});
    batch.AddFile("q", kFile, "text");
    batch.stream += first;
    EXPECT_EQ(tests::TextOf([&] { Read(batch); }),
              "The commands of a batch are refused.\n" + RefusedAt(0, "its path is not the entry's name"));
}

}  // namespace
}  // namespace agent::batch
