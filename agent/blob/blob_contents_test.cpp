#include "agent/blob/blob_contents.h"

#include <sys/stat.h>

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/mem_dev.h"
#include "mirrowen/posix/errno_exc.h"
#include "tests/support/caught_error.h"
#include "tests/support/temp_dir.h"

namespace agent::blob {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;

// A header for "123456789" and that as one run of literals.
const std::string kMagic = "\x0f\x00\x00\xf8"s;
const std::string kChecksum = "\x83\x92\x06\xe3"s;
const std::string kLength = "\x09\x00\x00\x00"s;
const std::string kBlock =
    "\x90"
    "123456789"s;

class BlobContents : public testing::Test {
  protected:
    blob_contents_t Read(const std::string& bytes) {
        tests::WriteFile(path_, bytes);
        return ReadBlob(path_);
    }
    // The messages of the fault and of its cause.
    std::vector<std::string> FaultOf(const blob_contents_t& contents) const {
        if (!contents.fault) {
            return {};
        }
        const tests::caught_error_t error = tests::DescribeError(contents.fault);
        EXPECT_EQ(error.message, "Failed to read blob file [" + path_ + "].");
        return error.causes;
    }
    static std::string PayloadOf(const blob_contents_t& contents) {
        return contents.payload ? std::string(contents.payload->begin(), contents.payload->end()) : "none";
    }

    tests::temp_dir_t dir_;
    const std::string path_ = dir_ / "blobfs0";
};

TEST_F(BlobContents, GoodFileIsHeaderAndPayload) {
    const blob_contents_t contents = Read(kMagic + kChecksum + kLength + kBlock);
    EXPECT_EQ(contents.fileSize, 22u);
    ASSERT_TRUE(contents.header);
    EXPECT_EQ(contents.header->magicAndFlags, 0xF800000F);
    EXPECT_EQ(contents.header->checksum, 0xE3069283);
    EXPECT_EQ(contents.header->uncompressedLength, 9u);
    EXPECT_EQ(contents.checksum, EChecksum::eGood);
    EXPECT_EQ(PayloadOf(contents), "123456789");
    EXPECT_FALSE(contents.fault);
}

TEST_F(BlobContents, FileWithoutAByteIsNoFault) {
    const blob_contents_t contents = Read("");
    EXPECT_EQ(contents.fileSize, 0u);
    EXPECT_FALSE(contents.header);
    EXPECT_FALSE(contents.payload);
    EXPECT_FALSE(contents.fault);
}

TEST_F(BlobContents, ChecksumThatIsNotThereIsNotCompared) {
    const blob_contents_t contents = Read("\x0f\x00\x00\xf0"s + "abcd" + kLength + kBlock);
    EXPECT_EQ(contents.checksum, EChecksum::eAbsent);
    EXPECT_EQ(PayloadOf(contents), "123456789");
    EXPECT_FALSE(contents.fault);
}

TEST_F(BlobContents, PayloadOfAWrongChecksumIsShownBesideTheFault) {
    const blob_contents_t contents = Read(kMagic + "\x01\x00\x00\x00"s + kLength + kBlock);
    EXPECT_EQ(contents.checksum, EChecksum::eWrong);
    EXPECT_EQ(PayloadOf(contents), "123456789");
    EXPECT_THAT(FaultOf(contents), ElementsAre("Failed to decompress LZ4 block: Bad crc (original crc: 00000001, "
                                               "current crc: e3069283)."));
}

TEST_F(BlobContents, WhatCannotBeUnpackedIsItsHeader) {
    const blob_contents_t shorter = Read(kMagic + kChecksum + "\x0a\x00\x00\x00"s + kBlock);
    EXPECT_EQ(shorter.checksum, EChecksum::eUnknown);
    EXPECT_EQ(PayloadOf(shorter), "none");
    EXPECT_THAT(FaultOf(shorter),
                ElementsAre("Failed to decompress LZ4 block: Incorrect decompression result or length "
                            "(result: '9', expected length: '10')."));
    const blob_contents_t other = Read("\x0f\x00\x00\xe8"s + kChecksum + kLength + kBlock);
    EXPECT_EQ(other.header->magicAndFlags, 0xE800000F);
    EXPECT_THAT(FaultOf(other), ElementsAre("Failed to decompress LZ4 block: incorrect block header."));
}

TEST_F(BlobContents, FileThatIsShorterThanAHeaderIsAFault) {
    const blob_contents_t contents = Read("12345678901");
    EXPECT_EQ(contents.fileSize, 11u);
    EXPECT_FALSE(contents.header);
    EXPECT_THAT(FaultOf(contents), ElementsAre("A blob file has at least [12] bytes, this one has [11]."));
}

TEST_F(BlobContents, FileThatCannotBeOpenedThrows) {
    EXPECT_THROW(ReadBlob(dir_ / "missing"), posix::errno_exc_t);
}

TEST_F(BlobContents, WhatIsNoRegularFileIsRefusedAndAPipeHoldsNobodyUp) {
    ASSERT_EQ(::mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    for (const std::string& path : {dir_.path(), dir_ / "pipe", std::string("/dev/null")}) {
        EXPECT_THAT(tests::CatchError([&] { ReadBlob(path); }),
                    tests::Throws("exc::CRuntimeExc", "[" + path + "] is not a regular file."));
    }
}

// Commands, written out.
const std::string kCreateDir = "\x0d\0\0\0\x01\0\0\0\x02\0/d\0"s;
const std::string kCreateFile = "\x0d\0\0\0\x02\0\0\0\x02\0/f\x01"s;
const std::string kWrite =
    "\x19\0\0\0\x03\0\0\0\0\0\x05\0\0\0\0\0\0\0\x03\0\0\0"
    "abc"s;
const std::string kUnknown = "\x0a\0\0\0\x07\0\0\0\0\0"s;

std::vector<shown_command_t> Tell(const std::string& payload) {
    std::vector<shown_command_t> told;
    TellCommands(cnt::array_t<char>(payload.begin(), payload.end()),
                 [&](const shown_command_t& command) { told.push_back(command); });
    return told;
}

std::string Metadata(const util::CFileInfo& info) {
    using device_t = io::mem_dev_tt<cnt::array_t<char>>;
    const auto device = std::make_shared<device_t>();
    io::binary_stream_tt stream(device);
    info.Serialize(stream);
    const cnt::array_t<char>& bytes = *device->GetBuffer();
    const auto length = static_cast<char>(bytes.size());
    return std::string(1, static_cast<char>(length + 14)) + "\0\0\0\x04\0\0\0\0\0"s + length + "\0\0\0"s +
           std::string(bytes.begin(), bytes.end());
}

TEST(ShownCommands, EachIsToldWithThePathThatItKeeps) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.mode = 0640;
    const std::vector<shown_command_t> told = Tell(kCreateDir + kCreateFile + kWrite + Metadata(info));
    ASSERT_EQ(told.size(), 4u);
    EXPECT_EQ(told[0].type, 1u);
    EXPECT_EQ(told[0].path, "/d");
    EXPECT_FALSE(told[0].keepsPath);
    EXPECT_EQ(told[0].overwrite, std::optional(false));
    EXPECT_EQ(told[1].at, 13u);
    EXPECT_EQ(told[1].length, 13u);
    EXPECT_EQ(told[1].overwrite, std::optional(true));
    EXPECT_EQ(told[2].path, "/f");
    EXPECT_TRUE(told[2].keepsPath);
    EXPECT_EQ(told[2].offset, std::optional<std::uint64_t>(5));
    EXPECT_EQ(told[2].bytes, 3u);
    EXPECT_EQ(told[3].info, std::optional(info));
    for (const shown_command_t& command : told) {
        EXPECT_EQ(command.fault, "");
    }
}

TEST(ShownCommands, OneThatCouldNotBeAppliedIsToldWithItsFaultAndTheOthersGoOn) {
    const std::vector<shown_command_t> told = Tell(kWrite + kCreateFile + kUnknown + "\x0a\0\0\0\x03\0\0\0\0\0"s +
                                                   "\x0e\0\0\0\x04\0\0\0\0\0\x01\0\0\0"s + kWrite);
    ASSERT_EQ(told.size(), 6u);
    EXPECT_EQ(told[0].fault, "Cannot create file without name.");
    EXPECT_EQ(told[1].fault, "");
    EXPECT_EQ(told[2].fault, "Invalid command type = 7.");
    EXPECT_EQ(told[3].fault, "Blob command of type [3] with a body of [0] bytes is too short.");
    EXPECT_EQ(told[4].fault, "Blob command of type [4] announces [1] bytes, only [0] follow.");
    EXPECT_EQ(told[5].fault, "");
}

TEST(ShownCommands, AttributesThatMakeNoSenseAreAFault) {
    std::string metadata = Metadata(util::CFileInfo());
    metadata[14] = 'X';
    const std::vector<shown_command_t> told = Tell(kCreateFile + metadata);
    EXPECT_EQ(told[1].fault, "Invalid file info: unknown version.");
    EXPECT_FALSE(told[1].info);
}

TEST(ShownCommands, WhatComesBeforeTheDamageIsTold) {
    std::vector<std::string> paths;
    const std::string payload = kCreateDir + kCreateFile + "rest";
    EXPECT_THAT(
        tests::CatchError([&] {
            TellCommands(cnt::array_t<char>(payload.begin(), payload.end()),
                         [&](const shown_command_t& command) { paths.push_back(command.path); });
        }),
        tests::Throws("exc::CRuntimeExc", "Blob payload ends within the header of the command at offset [26]."));
    EXPECT_THAT(paths, ElementsAre("/d", "/f"));
}

}  // namespace
}  // namespace agent::blob
