#include "tarn/blobfs/lz4.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/util/crc32c.h"
#include "tarn/blobfs/lz4_compressor.h"
#include "tests/support/caught_error.h"

namespace tarn::blobfs {
namespace {

using namespace std::string_literals;
using buffer_t = cnt::array_t<char>;
using buffer_ptr_t = std::shared_ptr<buffer_t>;

static_assert(std::is_same_v<decltype(&CLz4::compress), std::int32_t (*)(buffer_ptr_t, buffer_ptr_t&, BlockHeader&)>);
static_assert(
    std::is_same_v<decltype(&CLz4::decompress), std::uint32_t (*)(const BlockHeader&, buffer_ptr_t, buffer_ptr_t&)>);
static_assert(std::is_same_v<decltype(&CLz4::compressToFile), void (*)(buffer_ptr_t, const std::string&)>);
static_assert(std::is_same_v<decltype(&CLz4::decompressFromFile), buffer_ptr_t (*)(const std::string&)>);

// Blocks of a token, its high half the number of literals, and these.
const std::string kAbc = "\x30"s + "abc";
const std::string kDigits = "\x90"s + "123456789";

const std::string kResult = "Failed to decompress LZ4 block: Incorrect decompression result or length (result: ";
constexpr std::string_view kBadHeader = "Failed to decompress LZ4 block: incorrect block header.";

buffer_ptr_t Buffer(std::string_view text) {
    return std::make_shared<buffer_t>(text.begin(), text.end());
}

std::string TextOf(const buffer_ptr_t& buffer) {
    return {buffer->begin(), buffer->end()};
}

BlockHeader Header(std::uint32_t magicAndFlags, std::uint32_t checksum, std::uint32_t length) {
    BlockHeader header;
    header.magicAndFlags = magicAndFlags;
    header.checksum = checksum;
    header.uncompressedLength = length;
    return header;
}

std::string Unpack(const BlockHeader& header, std::string_view block) {
    buffer_ptr_t destination;
    const std::uint32_t length = CLz4::decompress(header, Buffer(block), destination);
    EXPECT_EQ(length, destination->size());
    return TextOf(destination);
}

std::string Refusal(const BlockHeader& header, std::string_view block) {
    const buffer_ptr_t before = Buffer("before");
    buffer_ptr_t destination = before;
    const auto caught = tests::CatchError([&] { CLz4::decompress(header, Buffer(block), destination); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(destination, before) << "a failure gave output";
    return caught.message;
}

std::string LengthRefusal(const std::string& result, const std::string& expected) {
    return kResult + "'" + result + "', expected length: '" + expected + "').";
}

TEST(Lz4, HeaderAndBlockHaveTheirBytes) {
    buffer_ptr_t block = Buffer("old");
    BlockHeader header;
    EXPECT_EQ(CLz4::compress(Buffer("123456789"), block, header), 10);
    EXPECT_EQ(TextOf(block), kDigits);
    std::string bytes(sizeof header, '?');
    std::memcpy(bytes.data(), &header, sizeof header);
    EXPECT_EQ(bytes, "\x0F\0\0\xF8\x83\x92\x06\xE3\x09\0\0\0"s);
}

TEST(Lz4, TheChecksumIsOfTheUncompressedBytes) {
    EXPECT_EQ(util::crc32c(0, "123456789", 9), 0xE3069283U);
    buffer_ptr_t block;
    BlockHeader header;
    CLz4::compress(Buffer(std::string(32, '\0')), block, header);
    EXPECT_EQ(header.checksum, 0x8A9136AAU);
    EXPECT_EQ(header.uncompressedLength, 32U);
    EXPECT_LT(block->size(), 32U);
}

TEST(Lz4, WhatIsPackedIsUnpacked) {
    std::string noise(100000, '\0');
    std::uint32_t state = 1;
    std::generate(noise.begin(), noise.end(), [&] {
        state = state * 1664525 + 1013904223;
        return static_cast<char>(state >> 24);
    });
    const std::string run(100000, 'r');
    for (const std::string& text : {std::string(), "a"s, noise, run, noise + run + noise}) {
        buffer_ptr_t block;
        BlockHeader header;
        const std::int32_t length = CLz4::compress(Buffer(text), block, header);
        EXPECT_EQ(static_cast<std::size_t>(length), block->size());
        EXPECT_TRUE(Unpack(header, TextOf(block)) == text) << text.size();
    }
}

TEST(Lz4, EmptySourceHasLengthAndChecksumZero) {
    buffer_ptr_t block;
    BlockHeader header;
    EXPECT_EQ(CLz4::compress(Buffer(""), block, header), 1);
    EXPECT_EQ(header.checksum, util::crc32c(0, nullptr, 0));
    EXPECT_EQ(header.uncompressedLength, 0U);
    EXPECT_EQ(TextOf(block), "\0"s);
    EXPECT_EQ(Unpack(header, TextOf(block)), "");
}

TEST(Lz4, OnlyTheMagicNumberIsRequired) {
    EXPECT_EQ(Unpack(Header(0xF000000F, 1, 3), kAbc), "abc") << "without the flag the checksum is not compared";
    EXPECT_EQ(Unpack(Header(0xF700000F, 1, 3), kAbc), "abc") << "the other flags mean nothing";
    for (const std::uint32_t bad : {0xE800000FU, 0x0800000FU, 0xF800000EU, 0xF801000FU, 0xF800010FU, 0x0F0000F8U, 0U}) {
        EXPECT_EQ(Refusal(Header(bad, 0, 3), kAbc), kBadHeader) << bad;
    }
}

TEST(Lz4, ChecksumIsComparedWhicheverOtherFlagsAreSet) {
    const std::uint32_t checksum = util::crc32c(0, "abc", 3);
    EXPECT_EQ(Unpack(Header(0xFF00000F, checksum, 3), kAbc), "abc");
    EXPECT_NE(Refusal(Header(0xFF00000F, checksum + 1, 3), kAbc), "");
}

TEST(Lz4, AnotherLengthThanTheHeadersIsRefused) {
    const std::string block = kAbc;
    EXPECT_EQ(Refusal(Header(0xF000000F, 0, 4), block), LengthRefusal("3", "4"));
    EXPECT_EQ(Refusal(Header(0xF000000F, 0, 0xFFFFFFFF), block), LengthRefusal("3", "4294967295"));
    EXPECT_THAT(Refusal(Header(0xF000000F, 0, 2), block), testing::StartsWith(kResult + "'-"));
}

TEST(Lz4, DamagedBlockIsRefusedWithItsNegativeResult) {
    EXPECT_EQ(Refusal(Header(0xF000000F, 0, 3), ""), LengthRefusal("-1", "3"));
    EXPECT_EQ(Refusal(Header(0xF000000F, 0, 0), ""), LengthRefusal("-1", "0"));
    EXPECT_EQ(Refusal(Header(0xF000000F, 0, 0xFFFFFFFF), ""), LengthRefusal("-1", "4294967295"))
        << "-1 is not the length 4294967295";
}

// Of "0", "1", ... the first text whose checksum is below 2^24, so that its hexadecimal form has leading zeros.
std::string TextOfSmallChecksum() {
    for (int number = 0;; ++number) {
        std::string text = std::to_string(number);
        if (util::crc32c(0, text.data(), text.size()) < 1U << 24) {
            return text;
        }
    }
}

TEST(Lz4, BadChecksumShowsTheStoredOneInEightDigitsAndTheOtherUnpadded) {
    const std::string text = TextOfSmallChecksum();
    ASSERT_LT(text.size(), 15U);
    const std::string block = static_cast<char>(text.size() << 4) + text;
    char current[9];
    std::snprintf(current, sizeof current, "%x", util::crc32c(0, text.data(), text.size()));
    ASSERT_LE(std::strlen(current), 6U);
    const std::string expected = "Failed to decompress LZ4 block: Bad crc (original crc: 00000abc, current crc: ";
    EXPECT_EQ(Refusal(Header(0xF800000F, 0xABC, static_cast<std::uint32_t>(text.size())), block),
              expected + current + ").");
}

TEST(Lz4, ChangedByteFailsTheChecksum) {
    EXPECT_EQ(Refusal(Header(0xF800000F, 0xE3069283, 9), "\x90"s + "12345678x"),
              "Failed to decompress LZ4 block: Bad crc (original crc: e3069283, current crc: 50160c3c).");
}

TEST(Lz4, EveryChangedBitIsNoticedButThoseWithoutMeaning) {
    const std::string frame = "\x0F\0\0\xF8\x83\x92\x06\xE3\x09\0\0\0"s + kDigits;
    for (std::size_t bit = 0; bit != frame.size() * 8; ++bit) {
        std::string bytes = frame;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
        BlockHeader header;
        std::memcpy(&header, bytes.data(), sizeof header);
        buffer_ptr_t destination;
        const auto caught =
            tests::CatchError([&] { CLz4::decompress(header, Buffer(bytes.substr(sizeof header)), destination); });
        const bool isFlag = bit >= 24 && bit < 28;
        const bool isMatchLengthOfTheEnd = bit >= 96 && bit < 100;  // the last sequence has literals only
        EXPECT_EQ(caught.thrown, !isFlag && !isMatchLengthOfTheEnd) << bit;
    }
}

long PeakKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(Lz4, HeaderThatLiesAboutTheLengthCostsNoMemory) {
    const long before = PeakKiB();
    EXPECT_EQ(Refusal(Header(0xF800000F, 0, 0xFFFFFFF0), kDigits), LengthRefusal("9", "4294967280"));
    EXPECT_LT(PeakKiB() - before, 256 << 10);
}

TEST(Lz4, GreatestRatioOfLz4IsUnpacked) {
    buffer_ptr_t block;
    BlockHeader header;
    const std::string run(16 << 20, 'r');
    CLz4::compress(Buffer(run), block, header);
    EXPECT_LT(block->size(), run.size() / 250);
    EXPECT_TRUE(Unpack(header, TextOf(block)) == run);
}

// What a compressor in place of LZ4's was asked.
thread_local std::vector<int> t_asked;

TEST(Lz4, NegativeResultOfTheCompressorIsRefused) {
    buffer_ptr_t block = Buffer("before");
    BlockHeader header;
    const auto caught = tests::CatchError(
        [&] { CompressWith([](const char*, char*, int, int) { return -7; }, *Buffer("abc"), block, header); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Lz4 compression has failed, error code '-7', data size '3'.");
    EXPECT_EQ(TextOf(block), "before");
}

TEST(Lz4, ResultZeroOfTheCompressorGivesAnEmptyBlock) {
    buffer_ptr_t block;
    BlockHeader header;
    EXPECT_EQ(CompressWith([](const char*, char*, int, int) { return 0; }, *Buffer("123456789"), block, header), 0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->size(), 0U);
    EXPECT_EQ(header.uncompressedLength, 9U);
    EXPECT_EQ(header.checksum, 0xE3069283U);
}

TEST(Lz4, CompressorGetsZeroedRoomOfATenthMoreThanTheSourceAndTwenty) {
    const auto compressor = [](const char* source, char* destination, int length, int capacity) {
        EXPECT_NE(source, nullptr);
        t_asked.insert(t_asked.end(), {length, capacity});
        EXPECT_TRUE(std::all_of(destination, destination + capacity, [](char byte) { return byte == 0; }));
        return 1;
    };
    t_asked.clear();
    for (const std::size_t length : std::initializer_list<std::size_t>{0, 3, 1000, 31457280}) {
        buffer_ptr_t block;
        BlockHeader header;
        CompressWith(compressor, buffer_t(length, 'x'), block, header);
    }
    EXPECT_EQ(t_asked, (std::vector<int>{0, 20, 3, 23, 1000, 1120, 31457280, 34603028}));
}

TEST(Lz4, ManyThreadsPackAndUnpackTheirOwnBuffers) {
    std::vector<std::thread> threads;
    for (char letter : {'a', 'b', 'c', 'd'}) {
        threads.emplace_back([letter] {
            for (std::size_t length = 0; length != 200; ++length) {
                const std::string text = std::string(length, letter) + "tail";
                buffer_ptr_t block;
                BlockHeader header;
                CLz4::compress(Buffer(text), block, header);
                EXPECT_EQ(Unpack(header, TextOf(block)), text);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace tarn::blobfs
