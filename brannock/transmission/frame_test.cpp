#include "brannock/transmission/frame.h"

#include <gtest/gtest.h>

#include "brannock/transmission/frame_payload.h"
#include "brannock/transmission/item_digest.h"
#include "mirrowen/util/crc32c.h"
#include "tests/support/format_example.h"
#include "tests/support/transfer_kit.h"

namespace brannock::transmission {
namespace {

std::string_view AsText(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::span<const std::byte> Bytes(std::string_view text) {
    return std::as_bytes(std::span(text));
}

payload_t PayloadOf(std::string_view text) {
    const auto bytes = Bytes(text);
    return {bytes.begin(), bytes.end()};
}

end_record_t SampleEnd() {
    end_record_t end{.bytes = 3, .blocks = 1};
    std::fill_n(end.digest.begin(), 16, std::byte{0x11});
    return end;
}

std::string Frame(const frame_header_t& header, const payload_t& payload) {
    return std::string(AsText(EncodeFrameHeader(header, payload))).append(AsText(payload));
}

class DocumentedFrameTest : public testing::Test {
  protected:
    // The example is what this end sends, and it understands it.
    static void ExpectExample(const std::string& section, frame_header_t header, const payload_t& payload) {
        const std::string example = tests::FormatExample(section, "docs/protocol.md");
        header.item = 2;
        EXPECT_EQ(example, Frame(header, payload));
        frame_bytes_t bytes{};
        ASSERT_LE(bytes.size(), example.size());
        std::ranges::copy(Bytes(example).first(bytes.size()), bytes.begin());
        header.payloadLength = static_cast<std::uint32_t>(payload.size());
        EXPECT_EQ(header, DecodeFrameHeader(bytes));
    }
};

TEST_F(DocumentedFrameTest, Data) {
    ExpectExample("DATA frame", {.type = EFrameType::eData, .rawLength = 3, .offset = 4096, .block = 1},
                  PayloadOf("abc"));
}

TEST_F(DocumentedFrameTest, Zero) {
    ExpectExample("ZERO frame", {.type = EFrameType::eZero, .rawLength = kMaxZeroRun, .offset = 8192, .block = 2}, {});
}

TEST_F(DocumentedFrameTest, End) {
    ExpectExample("END frame", {.type = EFrameType::eEnd}, EncodeEnd(SampleEnd()));
    EXPECT_EQ(SampleEnd(), DecodeEnd(EncodeEnd(SampleEnd())));
}

TEST_F(DocumentedFrameTest, Abort) {
    ExpectExample("ABORT frame", {.type = EFrameType::eAbort}, EncodeText("oops"));
}

TEST_F(DocumentedFrameTest, Busy) {
    ExpectExample("BUSY frame", {.type = EFrameType::eBusy}, {});
}

TEST_F(DocumentedFrameTest, Credit) {
    ExpectExample("CREDIT frame", {.type = EFrameType::eCredit, .block = 9}, {});
}

TEST_F(DocumentedFrameTest, Status) {
    const status_record_t status{EItemResult::eFailed, "no", {{7, 3, "a", "b"}}};
    ExpectExample("STATUS frame", {.type = EFrameType::eStatus}, EncodeStatus(status));
    EXPECT_EQ(status, DecodeStatus(EncodeStatus(status)));
}

// docs/protocol.md gives the digest of nothing and the room for payloads in words.
TEST(FrameTest, NumbersOfThePageAreTheCodes) {
    constexpr unsigned char kNothing[] = {0x99, 0xaa, 0x06, 0xd3, 0x01, 0x47, 0x98, 0xd8,
                                          0x60, 0x01, 0xc3, 0x24, 0x46, 0x8d, 0x49, 0x7f};
    const auto digest = item_digest_t().Get();
    EXPECT_TRUE(std::ranges::equal(std::as_bytes(std::span(kNothing)), std::span(digest).first(16)));
    EXPECT_EQ(4746252U, kMaxStatusPayload);
    EXPECT_EQ(56U, EncodeEnd({}).size());
    EXPECT_EQ(0xe3069283U, util::crc32c(0, "123456789", 9));
}

TEST(FrameTest, HeaderSurvivesTheRoundTrip) {
    frame_header_t header{.type = EFrameType::eCredit,
                          .flags = 1,
                          .rawLength = 7,
                          .item = 8,
                          .offset = 9,
                          .block = 10,
                          .transform = io::block::EBufTransformType::eZstd};
    header.nonce.fill(std::byte{0xAA});
    header.tag.fill(std::byte{0xBB});
    header.payloadLength = 3;
    const frame_bytes_t bytes = EncodeFrameHeader(header, Bytes("xyz"));
    EXPECT_EQ(header, DecodeFrameHeader(bytes));
}

TEST(FrameTest, ShortenedStatusIsRefusedEverywhere) {
    const payload_t good = EncodeStatus({EItemResult::eFailed, "no", {{7, 3, "a", "b"}, {8, 4, "c", "d"}}});
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_THROW(DecodeStatus(std::span(good).first(size)), exc::CRuntimeExc) << size;
    }
}

TEST(FrameTest, StatusIsBounded) {
    const payload_t bytes =
        EncodeStatus({EItemResult::eFailed, std::string(9000, 'x'),
                      std::vector<entry_report_t>(2000, {1, 2, std::string(5000, 'p'), std::string(900, 't')})});
    EXPECT_EQ(kMaxStatusPayload, bytes.size());
    const status_record_t status = DecodeStatus(bytes);
    EXPECT_EQ(8192U, status.text.size());
    EXPECT_EQ(1024U, status.reports.size());
}

// What a receiver makes of a recorded item: `change` spoils it first.
class RecordedItemTest : public testing::Test {
  protected:
    void SetUp() override {
        tests::transfer_kit_t kit;
        kit.Run(tests::SourceOf(text, 200), std::make_shared<tests::collecting_dev_t>());
        recorded = kit.left->GetWritten();
    }
    std::string Replay(const std::string& bytes) {
        tests::transfer_kit_t kit(std::size_t{1} << 20);
        target = std::make_shared<tests::collecting_dev_t>();
        kit.left->Write(bytes.data(), bytes.size());
        kit.wire.Left()->CloseWrite();
        const std::string error = tests::transfer_kit_t::TextOf([&] { kit.Receive(target); });
        EXPECT_EQ(0, kit.right->GetRunning());
        return error;
    }

    // Blocks of 4096 bytes would only make the walks over every byte longer.
    const std::string text = tests::Noise(200) + std::string(200, '\0') + "tail";
    std::string recorded;
    std::shared_ptr<tests::collecting_dev_t> target;
};

TEST_F(RecordedItemTest, UnspoiltIsGood) {
    EXPECT_EQ("", Replay(recorded));
    EXPECT_EQ(text, target->bytes);
}

TEST_F(RecordedItemTest, EveryFlippedByteIsNoticed) {
    for (std::size_t at = 0; at < recorded.size(); ++at) {
        std::string spoilt = recorded;
        spoilt[at] = static_cast<char>(spoilt[at] ^ 0x20);
        EXPECT_NE("", Replay(spoilt)) << at;
        EXPECT_EQ(0, target->finished) << at;
    }
}

TEST_F(RecordedItemTest, EveryCutIsNoticed) {
    for (std::size_t size = 0; size < recorded.size(); ++size) {
        EXPECT_EQ("The far end closed the channel during a transfer.", Replay(recorded.substr(0, size))) << size;
        EXPECT_EQ(0, target->finished) << size;
    }
}

TEST_F(RecordedItemTest, NoiseIsRefused) {
    for (std::uint64_t seed = 0; seed < 50; ++seed) {
        EXPECT_NE("", Replay(tests::Noise(500, seed))) << "seed " << seed;
        EXPECT_NE("", Replay("TBLK" + tests::Noise(500, seed))) << "seed " << seed;
    }
}

class ProtocolTest : public RecordedItemTest,
                     public testing::WithParamInterface<std::pair<frame_header_t, std::string>> {};

TEST_P(ProtocolTest, FrameIsRefused) {
    EXPECT_EQ("Broken block stream: " + GetParam().second + ".", Replay(Frame(GetParam().first, {})));
    EXPECT_EQ(0U, target->blocks);
}

INSTANTIATE_TEST_SUITE_P(
    Wrong, ProtocolTest,
    testing::Values(
        std::pair(frame_header_t{.type = EFrameType::eZero, .rawLength = 1, .item = 5},
                  "a frame of item [5] came during item [0]"),
        std::pair(frame_header_t{.type = EFrameType::eZero, .rawLength = 1, .block = 1},
                  "block [1] came instead of [0]"),
        std::pair(frame_header_t{.type = EFrameType::eData, .rawLength = 4097}, "a block has [4097] bytes"),
        std::pair(frame_header_t{.type = EFrameType::eZero, .rawLength = (64U << 20) + 1},
                  "a block has [67108865] bytes"),
        std::pair(frame_header_t{.type = EFrameType::eZero}, "a block has [0] bytes"),
        std::pair(frame_header_t{.type = EFrameType::eZero, .rawLength = 2, .offset = UINT64_MAX - 1},
                  "a block stands at [18446744073709551614]"),
        std::pair(frame_header_t{.type = EFrameType::eData, .rawLength = 2}, "a block of [2] bytes carries [0]"),
        std::pair(frame_header_t{.type = EFrameType::eZero, .flags = 2, .rawLength = 2}, "unknown flags [2]"),
        std::pair(frame_header_t{.type = EFrameType::eData,
                                 .rawLength = 2,
                                 .transform = static_cast<io::block::EBufTransformType>(77)},
                  "unknown block transform [77]"),
        std::pair(frame_header_t{.type = EFrameType::eStatus}, "a frame of type [7] came from the sender")));

TEST_F(RecordedItemTest, GiantLengthIsRefusedBeforeAnythingIsAllocated) {
    std::string spoilt = recorded;
    spoilt.replace(8, 4, "\xff\xff\xff\xff");
    EXPECT_EQ("Broken block stream: a frame of type [1] has [4294967295] bytes.", Replay(spoilt));
}

TEST_F(RecordedItemTest, TotalsAndDigestAreChecked) {
    const std::size_t at = recorded.size() - kEndPayloadSize - kFrameHeaderSize;
    const auto withEnd = [&](const end_record_t& end) {
        return recorded.substr(0, at) + Frame({.type = EFrameType::eEnd}, EncodeEnd(end));
    };
    end_record_t end = DecodeEnd(Bytes(std::string_view(recorded).substr(at + kFrameHeaderSize)));
    EXPECT_EQ("", Replay(withEnd(end)));
    end.bytes += 1;
    EXPECT_EQ("The far end sent [405] bytes in [3] blocks, but [404] bytes in [3] blocks were received.",
              Replay(withEnd(end)));
    end.bytes -= 1;
    end.digest[0] ^= std::byte{1};
    EXPECT_EQ("The digest of the received data is wrong.", Replay(withEnd(end)));
    end.kind = EItemDigest::eSha256;
    EXPECT_EQ("Item digest of kind [2] is not supported.", Replay(withEnd(end)));
    EXPECT_EQ(0, target->finished);
}

}  // namespace
}  // namespace brannock::transmission
