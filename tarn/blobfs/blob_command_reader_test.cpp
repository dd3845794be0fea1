#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blobfs/blob_command_reader.h"
#include "tests/support/blob_stream.h"
#include "tests/support/caught_error.h"

namespace {

using tarn::blobfs::blob_command_reader_t;
using tarn::blobfs::blob_command_t;
using testing::ElementsAre;
using tests::blob_stream_t;
using tests::Throws;

std::string Text(std::span<const char> bytes) {
    return {bytes.begin(), bytes.end()};
}

std::vector<blob_command_t> AllOf(const std::string& payload) {
    std::vector<blob_command_t> commands;
    blob_command_reader_t reader(payload);
    while (const auto command = reader.Next()) {
        commands.push_back(*command);
    }
    return commands;
}

/// The only command of the payload.
blob_command_t One(const std::string& payload) {
    return AllOf(payload).at(0);
}

TEST(BlobCommandReader, GivesTypePathBodyAndPlaceOfEachCommand) {
    const std::string payload(
        "\x10\0\0\0\x01\0\0\0\x05\0/path\x01"
        "\x0b\0\0\0\x02\0\0\0\0\0\x07"
        "\x0a\0\0\0\x09\0\0\0\0\0",
        37);
    const auto commands = AllOf(payload);
    ASSERT_EQ(commands.size(), 3U);
    EXPECT_EQ(commands[0].type, 1U);
    EXPECT_EQ(commands[0].path, "/path");
    EXPECT_EQ(Text(commands[0].body), "\x01");
    EXPECT_EQ(commands[0].offset, 0U);
    EXPECT_EQ(commands[0].length, 16U);
    EXPECT_EQ(commands[1].type, 2U);
    EXPECT_EQ(commands[1].path, "");
    EXPECT_EQ(Text(commands[1].body), "\x07");
    EXPECT_EQ(commands[1].offset, 16U);
    EXPECT_EQ(commands[1].length, 11U);
    EXPECT_EQ(commands[2].type, 9U);
    EXPECT_TRUE(commands[2].body.empty());
    EXPECT_EQ(commands[2].offset, 27U);
}

TEST(BlobCommandReader, NothingComesAfterTheEndHoweverOftenItIsAsked) {
    const std::string payload = blob_stream_t().CreateDir("/a", false).Bytes();
    blob_command_reader_t reader(payload);
    EXPECT_TRUE(reader.Next().has_value());
    EXPECT_FALSE(reader.Next().has_value());
    EXPECT_FALSE(reader.Next().has_value());
}

TEST(BlobCommandReader, LongestPathIsRead) {
    const std::string path(65535, 'p');
    EXPECT_EQ(One(blob_stream_t().CreateDir(path, false).Bytes()).path, path);
}

TEST(BlobCommandReader, PayloadShorterThanAHeaderIsRefused) {
    for (std::size_t size = 0; size < 10; ++size) {
        EXPECT_THAT(tests::CatchError([&] { AllOf(std::string(size, '\x0a')); }),
                    Throws("exc::CRuntimeExc",
                           "Blob payload of [" + std::to_string(size) + "] bytes is shorter than a command."));
    }
}

TEST(BlobCommandReader, HeaderThatReachesPastTheEndIsRefused) {
    const std::string whole = blob_stream_t().CreateDir("/a", false).Bytes();
    for (std::size_t rest = 1; rest < 10; ++rest) {
        EXPECT_THAT(tests::CatchError([&] { AllOf(whole + std::string(rest, '\0')); }),
                    Throws("exc::CRuntimeExc", "Blob payload ends within the header of the command at offset [13]."));
    }
}

TEST(BlobCommandReader, LengthBelowTheHeaderIsRefused) {
    for (std::uint32_t length = 0; length < 10; ++length) {
        const std::string payload =
            blob_stream_t().CreateDir("/a", false).Command(1, "", "\x01", length).Bytes() + std::string(64, '\0');
        EXPECT_THAT(tests::CatchError([&] { AllOf(payload); }),
                    Throws("exc::CRuntimeExc", "Blob command at offset [13] has length [" + std::to_string(length) +
                                                   "], less than its header."));
    }
}

TEST(BlobCommandReader, PathPastTheCommandIsRefused) {
    for (const std::uint32_t length : {10U, 14U}) {
        EXPECT_THAT(tests::CatchError([&] { AllOf(blob_stream_t().Command(2, "/path", "\x01", length).Bytes()); }),
                    Throws("exc::CRuntimeExc", "Blob command at offset [0] has length [" + std::to_string(length) +
                                                   "], too short for its path of [5] bytes."));
    }
    EXPECT_TRUE(One(blob_stream_t().Command(2, "/path", "", 15).Bytes()).body.empty());
}

TEST(BlobCommandReader, LengthPastThePayloadIsRefused) {
    const std::string payload = blob_stream_t().CreateDir("/a", false).Bytes();
    for (const std::uint32_t length : {14U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_THAT(tests::CatchError([&] { AllOf(blob_stream_t().Command(1, "/a", "\x01", length).Bytes()); }),
                    Throws("exc::CRuntimeExc", "Blob command at offset [0] has length [" + std::to_string(length) +
                                                   "], only [13] bytes are left."));
    }
    EXPECT_THAT(tests::CatchError([&] { AllOf(payload + payload.substr(0, 12)); }),
                Throws("exc::CRuntimeExc", "Blob command at offset [13] has length [13], only [12] bytes are left."));
}

TEST(BlobCommandReader, DamageIsToldAgainByEachLaterCall) {
    const std::string payload = blob_stream_t().CreateDir("/a", false).Command(1, "", "", 3).Bytes();
    blob_command_reader_t reader(payload);
    EXPECT_TRUE(reader.Next().has_value());
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(tests::CatchError([&] { reader.Next(); }),
                    Throws("exc::CRuntimeExc", "Blob command at offset [13] has length [3], less than its header."));
    }
}

TEST(BlobCommandReader, PayloadCutAtAnyByteIsRefusedOrEndsBetweenCommands) {
    const std::string whole = blob_stream_t()
                                  .CreateFile("/file", true)
                                  .Write("", 3, "data")
                                  .Metadata("", "info")
                                  .CreateDir("/d", false)
                                  .Bytes();
    std::vector<std::size_t> ends;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        if (!tests::CatchError([&] { AllOf(whole.substr(0, size)); }).thrown) {
            ends.push_back(size);
        }
    }
    EXPECT_THAT(ends, ElementsAre(16, 42, 60, 73));
}

TEST(BlobCommandBody, OverwriteFlag) {
    EXPECT_FALSE(ReadOverwriteFlag(One(blob_stream_t().CreateFile("/f", false).Bytes())));
    EXPECT_TRUE(ReadOverwriteFlag(One(blob_stream_t().CreateDir("/f", true).Bytes())));
    EXPECT_TRUE(ReadOverwriteFlag(One(blob_stream_t().Command(1, "/f", "\x80").Bytes())));
}

TEST(BlobCommandBody, MissingFlagIsRefused) {
    EXPECT_THAT(tests::CatchError([] { ReadOverwriteFlag(One(blob_stream_t().Command(1, "/f", "").Bytes())); }),
                Throws("exc::CRuntimeExc", "Blob command of type [1] with a body of [0] bytes is too short."));
}

TEST(BlobCommandBody, WriteGivesOffsetAndData) {
    const std::string payload = blob_stream_t().Write("/f", 0x8877665544332211, "data").Bytes();
    const auto write = ReadWrite(One(payload));
    EXPECT_EQ(write.offset, 0x8877665544332211U);
    EXPECT_EQ(Text(write.data), "data");
    EXPECT_TRUE(ReadWrite(One(blob_stream_t().Write("/f", 0, "").Bytes())).data.empty());
}

TEST(BlobCommandBody, BytesBehindTheAnnouncedOnesAreLeftOut) {
    const std::string payload = blob_stream_t().Write("/f", 0, "data", 3).Bytes();
    EXPECT_EQ(Text(ReadWrite(One(payload)).data), "dat");
    const std::string metadata = blob_stream_t().Metadata("/f", "info", 2).Bytes();
    EXPECT_EQ(Text(ReadMetadata(One(metadata))), "in");
}

TEST(BlobCommandBody, WritePastItsBodyIsRefused) {
    for (const std::uint32_t length : {5U, 0x80000000U, 0xFFFFFFFFU}) {
        const std::string payload = blob_stream_t().CreateDir("/a", false).Write("", 0, "data", length).Bytes();
        EXPECT_THAT(tests::CatchError([&] { ReadWrite(AllOf(payload).at(1)); }),
                    Throws("exc::CRuntimeExc", "Blob command of type [3] announces [" + std::to_string(length) +
                                                   "] bytes, only [4] follow."));
    }
}

TEST(BlobCommandBody, WriteWithoutItsFixedPartIsRefused) {
    for (std::size_t size = 0; size < 12; ++size) {
        EXPECT_THAT(tests::CatchError(
                        [&] { ReadWrite(One(blob_stream_t().Command(3, "/f", std::string(size, '\0')).Bytes())); }),
                    Throws("exc::CRuntimeExc", "Blob command of type [3] with a body of [" + std::to_string(size) +
                                                   "] bytes is too short."));
    }
}

TEST(BlobCommandBody, MetadataGivesItsBytes) {
    const std::string payload = blob_stream_t().Metadata("/f", "info").Bytes();
    EXPECT_EQ(Text(ReadMetadata(One(payload))), "info");
}

TEST(BlobCommandBody, MetadataPastItsBodyOrWithoutALengthIsRefused) {
    EXPECT_THAT(tests::CatchError([] { ReadMetadata(One(blob_stream_t().Metadata("/f", "info", 5).Bytes())); }),
                Throws("exc::CRuntimeExc", "Blob command of type [4] announces [5] bytes, only [4] follow."));
    for (std::size_t size = 0; size < 4; ++size) {
        EXPECT_THAT(tests::CatchError(
                        [&] { ReadMetadata(One(blob_stream_t().Command(4, "/f", std::string(size, '\0')).Bytes())); }),
                    Throws("exc::CRuntimeExc", "Blob command of type [4] with a body of [" + std::to_string(size) +
                                                   "] bytes is too short."));
    }
}

}  // namespace
