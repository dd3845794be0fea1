#include "tarn/blobfs/blob_creater.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/posix/syscalls.h"
#include "tests/support/blob_stream.h"
#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_blob_connection.h"

namespace tarn::blobfs {
namespace {

using namespace std::string_literals;
using logging::ELevel;
using testing::ElementsAre;
using tests::blob_stream_t;

static_assert(!std::is_copy_constructible_v<BlobCreater> && !std::is_copy_assignable_v<BlobCreater>);
static_assert(std::is_same_v<decltype(&BlobCreater::WriteFile),
                             void (BlobCreater::*)(const std::string&, unsigned long, const void*, unsigned long)>);
static_assert(std::is_same_v<decltype(&BlobCreater::SetFileMetadata),
                             void (BlobCreater::*)(const util::CFileInfo&, const std::string&)>);

// Connection, last path, name of the current file, its size, buffer.
static_assert(sizeof(BlobCreater) ==
              2 * sizeof(std::shared_ptr<void>) + 2 * sizeof(std::string) + sizeof(std::uint64_t));

constexpr std::size_t kMax = 31457280;

class BlobCreaterTest : public testing::Test {
  protected:
    void End() { creater_.reset(); }
    const std::vector<std::string>& Payloads() const { return connection_->payloads; }
    const std::vector<std::string>& Names() const { return connection_->names; }
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(connection_->dir.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
    void Write(const std::string& path, std::uint64_t offset, std::string_view data) {
        creater_->WriteFile(path, offset, data.data(), data.size());
    }
    // Creates "f" and writes it, `more` bytes longer than the longest blob that goes on.
    void FillBlob(std::size_t more) {
        const std::string data(kMax - 12 - 22 + more, 'x');
        creater_->CreateFile("f", false);
        Write("f", 0, data);
    }

    const std::shared_ptr<tests::recording_blob_connection_t> connection_ =
        std::make_shared<tests::recording_blob_connection_t>();
    std::optional<BlobCreater> creater_{std::in_place, connection_};
};

util::CFileInfo SomeInfo() {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.size = 5;
    info.owner = {"somebody", 1000};
    info.mode = 0640;
    info.modificationTime = {1700000000, 123456789};
    return info;
}

std::string Serialized(const util::CFileInfo& info) {
    const auto device = std::make_shared<io::mem_dev_tt<cnt::array_t<char>>>();
    io::binary_stream_tt stream(device);
    info.Serialize(stream);
    return {device->GetBuffer()->begin(), device->GetBuffer()->end()};
}

TEST_F(BlobCreaterTest, CommandsFollowOneAnotherByteForByte) {
    creater_->CreateDir("/d", false);
    creater_->CreateFile("/d/f", true);
    Write("/d/f", 7, "abc");
    End();
    EXPECT_THAT(Names(), ElementsAre("blobfs0"));
    EXPECT_THAT(Payloads(), ElementsAre("\x0D\0\0\0\x01\0\0\0\x02\0/d\0"s
                                        "\x0F\0\0\0\x02\0\0\0\x04\0/d/f\x01"s
                                        "\x19\0\0\0\x03\0\0\0\0\0\x07\0\0\0\0\0\0\0\x03\0\0\0"
                                        "abc"s));
}

TEST_F(BlobCreaterTest, FileIsOneFrameUnderItsNameInTheLocalFolder) {
    creater_->CreateDir("/d", false);
    End();
    EXPECT_THAT(Files(), ElementsAre("blobfs0"));
    const std::string frame = tests::ReadFile(connection_->dir / "blobfs0");
    EXPECT_EQ(frame.substr(0, 4), "\x0F\0\0\xF8"s);
    EXPECT_EQ(frame.substr(8, 4), "\x0D\0\0\0"s);
}

TEST_F(BlobCreaterTest, FlagsAreOneByte) {
    creater_->CreateDir("a", true);
    creater_->CreateDir("b", false);
    creater_->CreateFile("c", true);
    creater_->CreateFile("d", false);
    End();
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t()
                                            .CreateDir("a", true)
                                            .CreateDir("b", false)
                                            .CreateFile("c", true)
                                            .CreateFile("d", false)
                                            .Bytes()));
}

TEST_F(BlobCreaterTest, PathIsCarriedOnlyWhereItDiffersFromTheOneBefore) {
    creater_->CreateFile("a", false);
    Write("a", 0, "1");
    Write("ab", 0, "2");
    Write("a", 1, "3");
    creater_->SetFileMetadata(SomeInfo(), "a");
    creater_->CreateDir("b", false);
    End();
    const std::string info = Serialized(SomeInfo());
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t()
                                            .CreateFile("a", false)
                                            .Write("", 0, "1")
                                            .Write("ab", 0, "2")
                                            .Write("a", 1, "3")
                                            .Metadata("", info)
                                            .CreateDir("b", false)
                                            .Bytes()));
}

TEST_F(BlobCreaterTest, EmptyPathIsLikeNoneAndIsRemembered) {
    creater_->CreateFile("", false);
    creater_->CreateFile("a", false);
    creater_->CreateFile("", false);
    creater_->CreateFile("a", false);
    End();
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t()
                                            .CreateFile("", false)
                                            .CreateFile("a", false)
                                            .CreateFile("", false)
                                            .CreateFile("a", false)
                                            .Bytes()));
}

TEST_F(BlobCreaterTest, MetadataIsLengthAndSerialForm) {
    creater_->SetFileMetadata(SomeInfo(), "/f");
    creater_->SetFileMetadata(util::CFileInfo(), "/g");
    End();
    const std::string info = Serialized(SomeInfo());
    const std::string unset = Serialized(util::CFileInfo());
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().Metadata("/f", info).Metadata("/g", unset).Bytes()));
}

TEST_F(BlobCreaterTest, MetadataThatCannotBeCarriedLeavesNoTrace) {
    util::CFileInfo info = SomeInfo();
    info.owner.name = std::string(util::kMaxPrincipalName + 1, 'n');
    creater_->CreateFile("a", false);
    EXPECT_EQ(tests::CatchError([&] { creater_->SetFileMetadata(info, "b"); }).type, "exc::CRuntimeExc");
    Write("b", 0, "1");
    End();
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().CreateFile("a", false).Write("b", 0, "1").Bytes()));
}

TEST_F(BlobCreaterTest, WriteOfNothingIsACommand) {
    creater_->WriteFile("f", 9, nullptr, 0);
    End();
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().Write("f", 9, "").Bytes()));
}

TEST_F(BlobCreaterTest, OffsetsUseAllBits) {
    Write("f", 0xFFEEDDCCBBAA9988, "1");
    End();
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().Write("f", 0xFFEEDDCCBBAA9988, "1").Bytes()));
}

TEST_F(BlobCreaterTest, WriteOfTheGreatestChunkIsOneCommand) {
    Write("f", 5, std::string(kMax, 'x'));
    ASSERT_EQ(Payloads().size(), 1U) << "header and path make it too large, so the blob ends with it";
    EXPECT_TRUE(Payloads()[0] == blob_stream_t().Write("f", 5, std::string(kMax, 'x')).Bytes());
    End();
    EXPECT_EQ(Payloads().size(), 1U);
}

TEST_F(BlobCreaterTest, OneByteMoreIsASecondCommandWithThePathAgain) {
    Write("f", 5, std::string(kMax, 'x') + "y");
    End();
    EXPECT_THAT(Names(), ElementsAre("blobfs0", "blobfs1"));
    EXPECT_TRUE(Payloads()[0] == blob_stream_t().Write("f", 5, std::string(kMax, 'x')).Bytes());
    EXPECT_EQ(Payloads()[1], blob_stream_t().Write("f", 5 + kMax, "y").Bytes());
}

TEST_F(BlobCreaterTest, BlobOfExactlyTheThresholdGoesOn) {
    FillBlob(0);
    EXPECT_TRUE(Names().empty());
    creater_->CreateFile("f", false);
    ASSERT_THAT(Names(), ElementsAre("blobfs0"));
    EXPECT_EQ(Payloads()[0].size(), kMax + 11) << "the command that makes it too large is the last one";
    creater_->CreateFile("f", true);
    End();
    EXPECT_THAT(Names(), ElementsAre("blobfs0", "blobfs1"));
    EXPECT_EQ(Payloads()[1], blob_stream_t().CreateFile("f", true).Bytes()) << "a new blob begins with a path";
}

TEST_F(BlobCreaterTest, BlobOfOneByteMoreEndsAtOnce) {
    FillBlob(1);
    ASSERT_THAT(Names(), ElementsAre("blobfs0"));
    EXPECT_EQ(Payloads()[0].size(), kMax + 1);
    End();
    EXPECT_EQ(Names().size(), 1U);
}

TEST_F(BlobCreaterTest, LifeIsTraced) {
    End();
    const tests::log_capture_t log;
    creater_.emplace(connection_);
    creater_->CreateDir("/d", false);
    End();
    EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre("BlobCreater", "Lz4 compressing for traffic used.",
                                                       "~BlobCreater", "Blob file created. size=13."));
    EXPECT_EQ(log.Lines().front().section, log.Lines().back().section);
    EXPECT_TRUE(log.Texts(ELevel::eErr).empty());
}

TEST_F(BlobCreaterTest, NothingPendingIsTracedAndWritesNothing) {
    const tests::log_capture_t log;
    End();
    EXPECT_THAT(log.Texts(ELevel::eTrace), ElementsAre("~BlobCreater", "Blob file created. size=0."));
    EXPECT_TRUE(Files().empty());
    EXPECT_TRUE(Names().empty());
}

TEST_F(BlobCreaterTest, FileIsWrittenBeforeItIsAnnounced) {
    connection_->onCreated = [&] { EXPECT_THAT(Files(), ElementsAre("blobfs0")); };
    creater_->CreateDir("/d", false);
    EXPECT_TRUE(Files().empty()) << "commands wait in memory";
    End();
    EXPECT_EQ(Names().size(), 1U);
}

TEST_F(BlobCreaterTest, OlderFileOfThatNameIsReplaced) {
    tests::WriteFile(connection_->dir / "blobfs0", std::string(1000, 'x'));
    creater_->CreateDir("/d", false);
    End();
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().CreateDir("/d", false).Bytes()));
    EXPECT_LT(tests::ReadFile(connection_->dir / "blobfs0").size(), 100U);
}

TEST_F(BlobCreaterTest, TheConnectionIsHeldToTheEnd) {
    EXPECT_EQ(connection_.use_count(), 2);
    End();
    EXPECT_EQ(connection_.use_count(), 1);
}

TEST_F(BlobCreaterTest, FinishAnnouncesWhatIsPendingAndGoesOn) {
    creater_->CreateFile("f", false);
    creater_->Finish();
    EXPECT_THAT(Payloads(), ElementsAre(blob_stream_t().CreateFile("f", false).Bytes()));
    creater_->Finish();
    EXPECT_EQ(Names().size(), 1U) << "nothing was pending";
    Write("f", 0, "1");
    creater_->Finish();
    End();
    EXPECT_THAT(Names(), ElementsAre("blobfs0", "blobfs1"));
    EXPECT_EQ(Payloads()[1], blob_stream_t().Write("f", 0, "1").Bytes());
}

class BlobCreaterFailure : public BlobCreaterTest {
  protected:
    // Makes the next write of a file fail.
    void FillTheDisk() { calls_.Fail<&posix::syscalls_t::write>(ENOSPC); }

    tests::faulty_syscalls_t calls_;
};

TEST_F(BlobCreaterFailure, FailedWriteReachesTheOperationThatMadeTheBlobTooLarge) {
    FillTheDisk();
    EXPECT_THAT(tests::CatchError([&] { FillBlob(1); }),
                tests::Throws("posix::errno_exc_t", "Failed to write to file [" + (connection_->dir / "blobfs0") +
                                                        "]: No space left on device"));
    EXPECT_TRUE(Names().empty());
}

TEST_F(BlobCreaterFailure, CommandsOfABlobThatCouldNotBeWrittenAreGoneAndTheNextBringsItsPath) {
    FillTheDisk();
    creater_->CreateFile("f", false);
    EXPECT_TRUE(tests::CatchError([&] { creater_->Finish(); }).thrown);
    const tests::log_capture_t log;
    Write("f", 0, "1");
    End();
    EXPECT_THAT(Names(), ElementsAre("blobfs1")) << "no name is used again";
    EXPECT_EQ(Payloads()[0], blob_stream_t().Write("f", 0, "1").Bytes());
    EXPECT_TRUE(log.Has(ELevel::eTrace, "Blob file created. size=24."));
}

TEST_F(BlobCreaterFailure, MissingFolderIsNamedByFinish) {
    const auto connection = std::make_shared<tests::recording_blob_connection_t>("none", "", "");
    BlobCreater creater(connection);
    creater.CreateDir("d", false);
    EXPECT_THAT(tests::CatchError([&] { creater.Finish(); }),
                tests::Throws("posix::errno_exc_t", "Failed to open file [" + (connection->dir / "none/blobfs0") +
                                                        "] for writing: No such file or directory"));
    EXPECT_FALSE(tests::CatchError([&] { creater.Finish(); }).thrown) << "nothing is pending";
}

TEST_F(BlobCreaterFailure, WhatTheConnectionThrowsIsPassedOnAndTheNextBlobIsWhole) {
    connection_->onCreated = [] { throw std::runtime_error("no taker"); };
    creater_->CreateFile("f", false);
    EXPECT_THAT(tests::CatchError([&] { creater_->Finish(); }), tests::Throws("std::runtime_error", "no taker"));
    connection_->onCreated = nullptr;
    Write("f", 0, "1");
    End();
    EXPECT_THAT(Names(), ElementsAre("blobfs0", "blobfs1"));
    EXPECT_EQ(Payloads()[1], blob_stream_t().Write("f", 0, "1").Bytes());
}

TEST_F(BlobCreaterFailure, FailureAtTheEndIsOnlyLogged) {
    FillTheDisk();
    creater_->CreateFile("f", false);
    const tests::log_capture_t log;
    End();
    EXPECT_TRUE(log.Has(ELevel::eErr, "Failed to finish the last blob file; its commands are lost.")) << log.Dump();
    EXPECT_THAT(log.Lines().back().error, testing::HasSubstr("No space left on device"));
    EXPECT_TRUE(Names().empty());
}

TEST_F(BlobCreaterFailure, AnythingThrownAtTheEndIsHeldBack) {
    connection_->onCreated = [] { throw 5; };
    creater_->CreateFile("f", false);
    const tests::log_capture_t log;
    End();
    EXPECT_TRUE(log.Has(ELevel::eErr, "Failed to finish the last blob file; its commands are lost."));
}

}  // namespace
}  // namespace tarn::blobfs
