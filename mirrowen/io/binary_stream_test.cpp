#include "mirrowen/io/binary_stream.h"

#include "mirrowen/cnt/array.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/little_endian.h"
#include "mirrowen/io/mem_dev.h"
#include "tests/support/format_example.h"
#include "tests/support/scripted_dev.h"

namespace io {

namespace {

using std::string_literals::operator""s;
using buffer_t = cnt::array_t<char, std::allocator<char>>;

struct scripted_stream_t {
    explicit scripted_stream_t(std::string input = {})
        : device(std::make_shared<tests::scripted_dev_t>(std::move(input))), stream(device) {}

    std::shared_ptr<tests::scripted_dev_t> device;
    binary_stream_tt stream;
};

template <class Action>
std::string MessageOf(Action action) {
    try {
        action();
    } catch (const exc::CRuntimeExc& error) {
        return error.Message();
    }
    return "nothing was thrown";
}

TEST(LittleEndianTest, LowestByteComesFirst) {
    std::byte bytes[8];
    EncodeLittleEndian(std::uint64_t{0x1122334455667788}, bytes);
    EXPECT_EQ(bytes[0], std::byte{0x88});
    EXPECT_EQ(bytes[7], std::byte{0x11});
    EXPECT_EQ(DecodeLittleEndian<std::uint64_t>(bytes), 0x1122334455667788U);
    EXPECT_EQ(DecodeLittleEndian<std::uint16_t>(bytes), 0x7788U);
}

TEST(BinaryStreamTest, WritesTheDocumentedBytes) {
    scripted_stream_t test;
    test.stream.WriteU32(258);
    test.stream.WriteFlag(true);
    test.stream.WriteString("abc");
    EXPECT_EQ(test.device->output, tests::FormatExample("Binary encoding"));
}

TEST(BinaryStreamTest, IntegersAreLittleEndianWithoutPadding) {
    scripted_stream_t test;
    test.stream.WriteU8(0x01);
    test.stream.WriteU16(0x0302);
    test.stream.WriteU32(0x07060504);
    test.stream.WriteU64(0x0F0E0D0C0B0A0908);
    EXPECT_EQ(test.device->output, "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f"s);
}

TEST(BinaryStreamTest, ReadsBackWhatWasWrittenToAMemoryDevice) {
    auto device = std::make_shared<mem_dev_tt<buffer_t>>();
    binary_stream_tt stream(device);
    stream.WriteU8(0xFE);
    stream.WriteU16(0xFEDC);
    stream.WriteU32(0xFEDCBA98);
    stream.WriteU64(0xFEDCBA9876543210);
    stream.WriteFlag(false);
    stream.WriteFlag(true);
    stream.WriteString("a\0b"s);
    stream.Flush();
    device->Rewind();
    EXPECT_EQ(stream.ReadU8(), 0xFEU);
    EXPECT_EQ(stream.ReadU16(), 0xFEDCU);
    EXPECT_EQ(stream.ReadU32(), 0xFEDCBA98U);
    EXPECT_EQ(stream.ReadU64(), 0xFEDCBA9876543210U);
    EXPECT_FALSE(stream.ReadFlag());
    EXPECT_TRUE(stream.ReadFlag());
    EXPECT_EQ(stream.ReadString(), "a\0b"s);
    EXPECT_EQ(device->Remaining(), 0U);
}

TEST(BinaryStreamTest, AnyFlagButZeroIsTrue) {
    scripted_stream_t test("\x02\0\0\0\0\0\0\x80\0\0\0\0"s);
    EXPECT_TRUE(test.stream.ReadFlag());
    EXPECT_TRUE(test.stream.ReadFlag());
    EXPECT_FALSE(test.stream.ReadFlag());
}

TEST(BinaryStreamTest, PiecesFromTheDeviceAreJoined) {
    scripted_stream_t test("\x04\x03\x02\x01\x05\0\0\0hello"s);
    test.device->pieceSize = 1;
    EXPECT_EQ(test.stream.ReadU32(), 0x01020304U);
    EXPECT_EQ(test.stream.ReadString(), "hello");
}

TEST(BinaryStreamTest, ShortReadNamesReceivedAndExpected) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{2}}) {
        scripted_stream_t test("ab");
        test.device->pieceSize = piece;
        EXPECT_EQ(MessageOf([&] { test.stream.ReadU32(); }),
                  "Failed to retrieve value from the binary stream: received less bytes (2) than expected (4).");
    }
}

TEST(BinaryStreamTest, ReadOfNothingFromADeviceAtItsEndIsFine) {
    scripted_stream_t test;
    test.stream.ReadExact(nullptr, 0);
    EXPECT_EQ(test.stream.ReadBytes(0), "");
    EXPECT_EQ(MessageOf([&] { test.stream.ReadU8(); }),
              "Failed to retrieve value from the binary stream: received less bytes (0) than expected (1).");
}

TEST(BinaryStreamTest, ShortWriteNamesWrittenAndExpected) {
    scripted_stream_t test;
    test.device->room = 2;
    EXPECT_EQ(MessageOf([&] { test.stream.WriteU32(1); }),
              "Failed to write value to the binary stream: written less bytes (2) than expected (4).");
    EXPECT_EQ(test.device->output.size(), 2U) << "the rest is not offered again";
}

TEST(BinaryStreamTest, WriteOfNothingDoesNotReachTheDevice) {
    scripted_stream_t test;
    test.device->failure = "touched";
    EXPECT_NO_THROW(test.stream.WriteExact(nullptr, 0));
}

TEST(BinaryStreamTest, StringsOfEveryLengthAroundTheReadStepSurvive) {
    for (const std::size_t length : {0U, 1U, 65535U, 65536U, 65537U, 200000U}) {
        std::string text(length, 'x');
        if (length != 0) {
            text.back() = 'y';
        }
        scripted_stream_t writer;
        writer.stream.WriteString(text);
        ASSERT_EQ(writer.device->output.size(), 4 + length);
        scripted_stream_t reader(writer.device->output);
        reader.device->pieceSize = 50000;
        EXPECT_TRUE(reader.stream.ReadString() == text) << length;
    }
}

TEST(BinaryStreamTest, ALengthThatLiesAllocatesNothing) {
    scripted_stream_t test(
        "\xff\xff\xff\xff"
        "abc"s);
    EXPECT_EQ(MessageOf([&] { test.stream.ReadString(); }),
              "Failed to retrieve value from the binary stream: received less bytes (3) than expected (4294967295).");
    EXPECT_LE(test.device->largestRead, 65536U);
}

TEST(BinaryStreamTest, ShortStringCountsAllThatArrived) {
    std::string input(100004, 'x');
    input.replace(0, 4, "\x00\x00\x02\x00"s);
    scripted_stream_t test(input);
    EXPECT_EQ(MessageOf([&] { test.stream.ReadString(); }),
              "Failed to retrieve value from the binary stream: received less bytes (100000) than expected (131072).");
}

TEST(BinaryStreamTest, StringOverTheCallersMaximumIsRefusedUnread) {
    scripted_stream_t test("\x04\0\0\0abcd"s);
    EXPECT_EQ(MessageOf([&] { test.stream.ReadString(3); }),
              "String of [4] bytes in the binary stream is longer than the allowed [3].");
    EXPECT_EQ(test.device->position, 4U);
    scripted_stream_t exact("\x04\0\0\0abcd"s);
    EXPECT_EQ(exact.stream.ReadString(4), "abcd");
}

TEST(BinaryStreamTest, StringTooLongForItsCountIsRefusedBeforeAnythingIsWritten) {
    scripted_stream_t test;
    static const char letter = 'x';
    // The length is refused before a byte of it is looked at.
    const std::string_view text(&letter, std::size_t{1} << 32);
    EXPECT_EQ(MessageOf([&] { test.stream.WriteString(text); }),
              "Unable to cast value from [unsigned long] to [unsigned int].");
    EXPECT_EQ(test.device->output, "");
}

TEST(BinaryStreamTest, FlushAndFailuresOfTheDevicePassThrough) {
    scripted_stream_t test;
    test.stream.Flush();
    EXPECT_EQ(test.device->flushes, 1);
    test.device->failure = "reset by peer";
    EXPECT_THROW(test.stream.ReadU8(), std::runtime_error);
    EXPECT_THROW(test.stream.WriteU8(1), std::runtime_error);
    EXPECT_EQ(test.stream.GetDevice(), test.device);
}

TEST(BinaryStreamTest, NeedsADevice) {
    EXPECT_EQ(MessageOf([] { binary_stream_tt stream(nullptr); }), "Binary stream needs a device.");
}

}  // namespace

}  // namespace io
