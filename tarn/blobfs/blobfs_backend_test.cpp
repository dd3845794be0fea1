// The backend of blob files at work: what becomes a command, what is refused, how a batch ends.
#include <memory>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/io/binary_stream.h"
#include "mirrowen/posix/syscalls.h"
#include "tarn/blobfs/blobfs_file_wstream.h"
#include "tarn/blobfs/blobfs_operations.h"
#include "tests/support/blob_stream.h"
#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/log_capture.h"
#include "tests/support/plain_blobfs_operations.h"
#include "tests/support/virtual_slot.h"

namespace tarn::blobfs {
namespace {

using logging::ELevel;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::blob_stream_t;
using tests::CatchError;
using tests::Throws;

static_assert(std::is_base_of_v<fs_operations_t, blobfs_operations_t> && std::is_abstract_v<blobfs_operations_t>);
static_assert(sizeof(blobfs_operations_t) == sizeof(fs_operations_t) + sizeof(std::shared_ptr<BlobCreater>));

class BlobfsBackend : public testing::Test {
  protected:
    blobfs_operations_t& Fs() const { return batch_.Operations(); }
    static void Close() { blobfs_operations_t::CloseBlobFsOp("blobfs://any/path"); }
    const std::vector<std::string>& Payloads() const { return batch_.connection->payloads; }

    const tests::blob_batch_t batch_;
};

TEST_F(BlobfsBackend, ChangesBecomeCommandsOnTheTargetPath) {
    const util::CFileInfo unset;
    const auto device = std::make_shared<io::mem_dev_tt<cnt::array_t<char>>>();
    io::binary_stream_tt stream(device);
    unset.Serialize(stream);
    Fs().CreateDir("blobfs:///d");
    std::shared_ptr<file_wstream_t> file = Fs().CreateNewFile("blobfs:///d/f", 1000, true);
    file->WriteExc("abc", 3);
    Fs().SetFileMetadata(unset, "blobfs:///d/f");
    Fs().CreateNewFile("blobfs:///d/g", 0, false);
    EXPECT_THAT(Payloads(), IsEmpty());
    batch_.connection->onCreated = [] { EXPECT_TRUE(mapBlobFsOps.empty()); };
    Close();
    EXPECT_THAT(Payloads(), IsEmpty()) << "the stream holds the creator";
    file.reset();
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t()
                                            .CreateDir("/d", false)
                                            .CreateFile("/d/f", true)
                                            .Write("", 0, "abc")
                                            .Metadata("", {device->GetBuffer()->data(), device->GetBuffer()->size()})
                                            .CreateFile("/d/g", false)
                                            .Bytes()));
}

TEST_F(BlobfsBackend, NewFileIsAStreamOfBlobFiles) {
    const auto file = Fs().CreateNewFile("blobfs://f", 0, false);
    EXPECT_NE(std::dynamic_pointer_cast<blobfs_file_wstream_t>(file), nullptr);
    EXPECT_EQ(file->GetPath(), "f");
}

TEST_F(BlobfsBackend, TargetPathIsWhatFollowsTheFirstSeparator) {
    Fs().CreateDir("blobfs://");
    Fs().CreateDir("blobfs://a://b");
    Fs().CreateDir("other prefix://c");
    Close();
    EXPECT_THAT(
        Payloads(),
        ElementsAre(blob_stream_t().CreateDir("", false).CreateDir("a://b", false).CreateDir("c", false).Bytes()));
}

TEST_F(BlobfsBackend, PathWithoutAPrefixIsRefusedWhole) {
    const auto refusal = Throws("exc::CRuntimeExc", "Invalid prefix for file [/d/f:/]");
    EXPECT_THAT(CatchError([&] { Fs().CreateDir("/d/f:/"); }), refusal);
    EXPECT_THAT(CatchError([&] { Fs().SetFileMetadata({}, "/d/f:/"); }), refusal);
    EXPECT_THAT(CatchError([&] { Fs().CreateNewFile("/d/f:/", 0, true); }), refusal);
    Close();
    EXPECT_THAT(Payloads(), IsEmpty());
}

TEST_F(BlobfsBackend, NothingExists) {
    Fs().CreateDir("blobfs:///d");
    const tests::log_capture_t log;
    EXPECT_FALSE(Fs().IsObjectExist("blobfs:///d"));
    EXPECT_FALSE(Fs().IsObjectExist("/"));
    EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre("IsObjectExist", "IsObjectExist"));
    EXPECT_EQ(log.Lines().front().section, "fs_log");
}

TEST_F(BlobfsBackend, WhatItLacksIsRefusedByNameAndTraced) {
    const std::string path = "blobfs:///f";
    std::string text;
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"OpenFile4Read", [&] { Fs().OpenFile4Read(path); }},
        {"OpenDisk4Read", [&] { Fs().OpenDisk4Read(path); }},
        {"OpenFile4Write", [&] { Fs().OpenFile4Write(path, 5); }},
        {"DeleteFile", [&] { Fs().DeleteFile(path); }},
        {"IsRenameSupported", [&] { Fs().IsRenameSupported(); }},
        {"RenameFile", [&] { Fs().RenameFile(path, path); }},
        {"GetBackupMedia", [&] { Fs().GetBackupMedia(); }},
        {"GetFileMetadata", [&] { Fs().GetFileMetadata(path); }},
        {"TryGetSymLinkInfo", [&] { Fs().TryGetSymLinkInfo(path, text); }},
        {"CreateSymLink", [&] { Fs().CreateSymLink(path, text); }},
    };
    for (const auto& [name, call] : calls) {
        const tests::log_capture_t log;
        EXPECT_THAT(CatchError(call), Throws("exc::CNotImplExc", name));
        EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre(name));
    }
    Close();
    EXPECT_THAT(Payloads(), IsEmpty());
}

TEST_F(BlobfsBackend, ListingIsTheInterfacesOwnRefusal) {
    EXPECT_THAT(CatchError([&] { Fs().EnumerateDirectoryContent("blobfs://"); }),
                Throws("exc::CNotImplExc", "fs_operations_t::EnumerateDirectoryContent"));
}

TEST_F(BlobfsBackend, OwnOperationsFollowTheInterfaceAndReplaceNothing) {
    using fs_t = blobfs_operations_t;
    const std::size_t last = tests::VirtualSlot(&fs_operations_t::EnumerateDirectoryContent);
    EXPECT_EQ(tests::VirtualSlot<util::CFileInfo (fs_t::*)(const std::string&)>(&fs_t::GetFileMetadata), last + 1);
    EXPECT_EQ(tests::VirtualSlot<bool (fs_t::*)(const std::string&, std::string&)>(&fs_t::TryGetSymLinkInfo), last + 2);
    EXPECT_EQ(tests::VirtualSlot<void (fs_t::*)(const std::string&, const std::string&)>(&fs_t::CreateSymLink),
              last + 3);
    fs_operations_t& interface = Fs();
    CSymlinkData data;
    EXPECT_FALSE(interface.TryGetSymLinkInfo("blobfs://f", data)) << "the derived class's own";
    EXPECT_FALSE(interface.GetFileMetadata("blobfs://f", EFileInfoType::eFileInfoFull).isSet());
}

TEST_F(BlobfsBackend, ClosingEndsTheBatchAndIsTraced) {
    Fs().CreateDir("blobfs://d");
    const tests::log_capture_t log;
    Close();
    EXPECT_THAT(log.Texts(ELevel::eTrace),
                ElementsAre("CloseBlobFsOp", "Close by prefix [blobfs://].", "~blobfs_operations_t", "~BlobCreater",
                            "Blob file created. size=12."));
    EXPECT_THAT(batch_.connection->names, ElementsAre("blobfs0"));
    EXPECT_FALSE(blobfs_operations_t::IsBlobFsPath("blobfs://d"));
}

TEST_F(BlobfsBackend, ClosingTwiceIsRefused) {
    Close();
    const tests::log_capture_t log;
    EXPECT_THAT(CatchError(Close), Throws("exc::CRuntimeExc", "Cannot find prefix [blobfs://]."));
    EXPECT_THAT(log.Texts(ELevel::eTrace), testing::Contains("Failed: CloseBlobFsOp"));
}

TEST_F(BlobfsBackend, ClosingAPathWithoutAPrefixIsRefused) {
    EXPECT_THAT(CatchError([] { blobfs_operations_t::CloseBlobFsOp("blobfs:/d"); }),
                Throws("exc::CRuntimeExc", "Invalid prefix in fs_path [blobfs:/d]"));
    EXPECT_TRUE(blobfs_operations_t::IsBlobFsPath("blobfs://d"));
}

TEST_F(BlobfsBackend, ClosingOneBatchLeavesTheOthers) {
    const tests::blob_batch_t other("other://");
    other.Operations().CreateDir("other://d");
    Close();
    EXPECT_THAT(other.connection->names, IsEmpty());
    EXPECT_TRUE(blobfs_operations_t::IsBlobFsPath("other://d"));
}

TEST_F(BlobfsBackend, BackendThatIsStillHeldGoesOn) {
    const auto held = blobfs_operations_t::GetByFsPath("blobfs://d");
    Close();
    held->CreateDir("blobfs://d");
    EXPECT_THAT(Payloads(), IsEmpty());
}

TEST_F(BlobfsBackend, FailuresOfTheCreatorArePassedOnAsTheyAre) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    const auto file = Fs().CreateNewFile("blobfs://f", 0, true);
    const std::string data(31457280, 'x');
    EXPECT_THAT(CatchError([&] { file->WriteExc(data.data(), data.size()); }),
                Throws("posix::errno_exc_t", "Failed to write to file [" + (batch_.connection->dir / "blobfs0") +
                                                 "]: No space left on device"));
}

TEST_F(BlobfsBackend, TheDispatcherChoosesItOnlyForARegisteredPrefix) {
    EXPECT_EQ(fs_operations_t::RecognizeFsPath("blobfs://d", 0).get(), &Fs());
    Close();
    EXPECT_EQ(std::dynamic_pointer_cast<blobfs_operations_t>(fs_operations_t::RecognizeFsPath("blobfs://d", 0)),
              nullptr);
}

}  // namespace
}  // namespace tarn::blobfs
