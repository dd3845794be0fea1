#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/blob_fixture.h"

/// Blob files that lie: what they say is refused with its reason and changes nothing that it did not announce.
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tests::blob_stream_t;
using tests::BlobFrame;
using tests::LiteralBlock;
using tests::wire_text_t;

class BlobParserHostile : public tests::blob_fixture_t {
  protected:
    /// A whole command that would leave a trace if it were applied.
    blob_stream_t Good() const { return blob_stream_t().CreateFile(Path("f"), true).Write("", 0, "x"); }
    std::size_t GoodSize() const { return Good().Bytes().size(); }

    /// The file is refused for `reason`, nothing of it was applied, and it stays.
    void ExpectRefused(const std::string& content, const std::string& reason) {
        const auto caught = ApplyBytes(content);
        EXPECT_EQ(caught.what, "Failed to parse file [" + blob_ + "].\n" + reason);
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_FALSE(util::fs_file_exists(Path("f")));
        EXPECT_EQ(tests::ReadFile(blob_), content);
        EXPECT_THAT(observed_, IsEmpty());
        EXPECT_THAT(Errors(), IsEmpty());
    }
    void ExpectRefused(const blob_stream_t& stream, const std::string& reason) {
        ExpectRefused(BlobFrame(stream.Bytes()), reason);
    }
    std::string At(std::size_t offset) const {
        return "Blob command at offset [" + std::to_string(offset) + "] has length [";
    }
};

TEST_F(BlobParserHostile, CommandLengthBelowTheHeader) {
    for (const std::uint32_t length : {0U, 1U, 9U}) {
        ExpectRefused(Good().Command(1, "", "12345678901234567890", length),
                      At(GoodSize()) + std::to_string(length) + "], less than its header.");
        ExpectRefused(blob_stream_t().Command(1, "", "12345678901234567890", length),
                      At(0) + std::to_string(length) + "], less than its header.");
    }
}

TEST_F(BlobParserHostile, PathLengthPastTheCommand) {
    ExpectRefused(Good().Command(2, "/path", "\x01", 14), At(GoodSize()) + "14], too short for its path of [5] bytes.");
}

TEST_F(BlobParserHostile, CommandPastThePayload) {
    for (const std::uint32_t length : {17U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        ExpectRefused(Good().Command(2, "/path", "\x01", length),
                      At(GoodSize()) + std::to_string(length) + "], only [16] bytes are left.");
    }
}

TEST_F(BlobParserHostile, HeaderPastThePayload) {
    for (std::size_t rest = 1; rest < 10; ++rest) {
        ExpectRefused(
            BlobFrame(Good().Bytes() + std::string(rest, '\0')),
            "Blob payload ends within the header of the command at offset [" + std::to_string(GoodSize()) + "].");
    }
}

TEST_F(BlobParserHostile, PayloadTooShortForACommand) {
    for (std::size_t size = 0; size < 10; ++size) {
        ExpectRefused(BlobFrame(std::string(size, '\x0a')),
                      "Blob payload of [" + std::to_string(size) + "] bytes is shorter than a command.");
    }
}

TEST_F(BlobParserHostile, DataPastTheBody) {
    for (const std::uint32_t length : {5U, 0xFFFFFFFFU}) {
        const auto caught = Apply(blob_stream_t()
                                      .CreateFile(Path("f"), true)
                                      .Write("", 0, "data", length)
                                      .Write("", 0, "skipped")
                                      .CreateFile(Path("g"), true));
        EXPECT_EQ(caught.what, Fails(1));
        EXPECT_EQ(Errors().back(), (error_line_t{"Failed to apply list of commands.",
                                                 "Blob command of type [3] announces [" + std::to_string(length) +
                                                     "] bytes, only [4] follow."}));
        EXPECT_EQ(Content("f"), "");
        EXPECT_EQ(Content("g"), "");
        EXPECT_FALSE(BlobStays());
    }
}

TEST_F(BlobParserHostile, MetadataPastTheBody) {
    Put("f", "kept");
    const auto caught = Apply(blob_stream_t().Metadata(Path("f"), "info", 5).Write("", 0, "skipped"));
    EXPECT_EQ(caught.what, Fails(1));
    EXPECT_THAT(Errors(), ElementsAre(error_line_t{"Failed to apply list of commands.",
                                                   "Blob command of type [4] announces [5] bytes, only [4] follow."}));
    EXPECT_EQ(Content("f"), "kept");
}

TEST_F(BlobParserHostile, BodyTooShortForItsType) {
    const std::pair<std::uint32_t, std::size_t> needed[] = {{1, 1}, {2, 1}, {3, 12}, {4, 4}};
    for (const auto& [type, size] : needed) {
        const std::string body(size - 1, '\0');
        EXPECT_EQ(Apply(blob_stream_t().Command(type, Path("f"), body)).what, Fails(1));
        EXPECT_EQ(Errors().back(),
                  (error_line_t{"Failed to apply list of commands.",
                                "Blob command of type [" + std::to_string(type) + "] with a body of [" +
                                    std::to_string(body.size()) + "] bytes is too short."}));
        EXPECT_FALSE(util::fs_file_exists(Path("f")));
    }
}

TEST_F(BlobParserHostile, LongestPathIsOnlyAFailure) {
    EXPECT_EQ(Apply(blob_stream_t().CreateFile("/" + std::string(65534, 'p'), true)).what, Fails(1));
    EXPECT_THAT(Errors().back().failure, testing::EndsWith("]: File name too long"));
}

TEST_F(BlobParserHostile, WrongMagic) {
    for (const std::uint32_t magic : {0U, 0xE800000FU, 0xF800000EU, 0x0F0000F8U}) {
        ExpectRefused(BlobFrame(Good().Bytes(), magic), "Failed to decompress LZ4 block: incorrect block header.");
    }
}

TEST_F(BlobParserHostile, WrongChecksum) {
    const std::string payload = Good().Bytes();
    const std::uint32_t right = util::crc32c(0, payload.data(), payload.size());
    wire_text_t frame;
    frame.U32(0xF800000F).U32(0x1a).U32(static_cast<std::uint32_t>(payload.size())).Raw(LiteralBlock(payload));
    std::string hex;
    for (std::uint32_t rest = right; rest != 0; rest /= 16) {
        hex.insert(hex.begin(), "0123456789abcdef"[rest % 16]);
    }
    ExpectRefused(frame.Bytes(),
                  "Failed to decompress LZ4 block: Bad crc (original crc: 0000001a, current crc: " + hex + ").");
}

TEST_F(BlobParserHostile, ChecksumOfAFrameWithoutTheFlagIsNotCompared) {
    const std::string payload = Good().Bytes();
    wire_text_t frame;
    frame.U32(0xF000000F).U32(0x1a).U32(static_cast<std::uint32_t>(payload.size())).Raw(LiteralBlock(payload));
    EXPECT_FALSE(ApplyBytes(frame.Bytes()).thrown);
    EXPECT_EQ(Content("f"), "x");
}

TEST_F(BlobParserHostile, LengthThatTheBlockDoesNotHave) {
    const std::string payload = Good().Bytes();
    const std::size_t size = payload.size();
    for (const std::uint32_t length : {static_cast<std::uint32_t>(size + 1), 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        wire_text_t frame;
        frame.U32(0xF000000F).U32(0).U32(length).Raw(LiteralBlock(payload));
        ExpectRefused(frame.Bytes(),
                      "Failed to decompress LZ4 block: Incorrect decompression result or length (result: '" +
                          std::to_string(size) + "', expected length: '" + std::to_string(length) + "').");
    }
}

TEST_F(BlobParserHostile, BlockThatIsDamaged) {
    for (const char* const block : {"", "\xf0", "\x10", "\x14garbage"}) {
        const auto caught = ApplyBytes(wire_text_t().U32(0xF800000F).U32(0).U32(20).Raw(block).Bytes());
        EXPECT_THAT(
            caught.what,
            testing::MatchesRegex("Failed to parse file \\[.*\\]\\.\nFailed to decompress LZ4 block: Incorrect "
                                  "decompression result or length \\(result: '-[0-9]+', expected length: '20'\\)\\."));
        EXPECT_TRUE(BlobStays());
    }
}

TEST_F(BlobParserHostile, FileTooShortForAFrame) {
    for (std::size_t size = 1; size < 12; ++size) {
        ExpectRefused(std::string(size, '\x0f'), "cannot create std::vector larger than max_size()");
    }
}

}  // namespace
