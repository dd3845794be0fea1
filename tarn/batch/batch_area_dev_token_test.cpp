#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tarn/batch/batch_area_dev_token.h"
#include "tests/support/caught_error.h"
#include "tests/support/format_example.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/virtual_slot.h"
#include "tests/support/wire_text.h"

namespace {

using tarn::batch::CBatchAreaDevToken;
using tarn::batch::SFileItemSpec;
using testing::ElementsAre;
using tests::wire_text_t;
using items_t = std::list<SFileItemSpec>;

static_assert(std::is_base_of_v<io::area::IAreaDevToken, CBatchAreaDevToken>);
static_assert(std::is_constructible_v<CBatchAreaDevToken, items_t, std::uint64_t, bool, bool>);

constexpr const char* kReadFailure = "Failed to deserialize batch file upload area token.";

const items_t kItems{{"first", "/second", 7}, {"", std::string("b\0c", 3), 0xFFEEDDCCBBAA9988}};

/// The serial form of kItems with total 0x0102030405060708, flag A set and flag B not.
std::string Golden() {
    return {
        "\x02\0\0\0"
        "\x08\x07\x06\x05\x04\x03\x02\x01"
        "\x01\0\0\0"
        "\0\0\0\0"
        "\x05\0\0\0first"
        "\x07\0\0\0/second"
        "\x07\0\0\0\0\0\0\0"
        "\0\0\0\0"
        "\x03\0\0\0b\0c"
        "\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF",
        67};
}

std::string Serialised(const CBatchAreaDevToken& token) {
    const auto channel = std::make_shared<tests::scripted_dev_t>();
    io::binary_stream_tt stream(channel);
    token.Serial(stream);
    return channel->output;
}

std::shared_ptr<CBatchAreaDevToken> Loaded(const std::string& bytes) {
    io::binary_stream_tt stream(std::make_shared<tests::scripted_dev_t>(bytes));
    return std::dynamic_pointer_cast<CBatchAreaDevToken>(CBatchAreaDevToken::Unserial(stream));
}

TEST(BatchAreaDevToken, OrderOfVirtualFunctionsIsPartOfTheInterface) {
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevToken::GetType), 1U);
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevToken::Path4Log), 2U);
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevToken::Serial), 3U);
    EXPECT_EQ(tests::VirtualSlot(&CBatchAreaDevToken::GetItems), 0U);
}

TEST(BatchAreaDevToken, HasTypeAndNoSinglePath) {
    CBatchAreaDevToken token(kItems, 0, false, false);
    EXPECT_EQ(CBatchAreaDevToken::GetTokenType(), "BatchFileUploadToken");
    EXPECT_EQ(token.GetType(), "BatchFileUploadToken");
    EXPECT_EQ(token.Path4Log(), "N/A");
}

TEST(BatchAreaDevToken, KeepsACopyOfWhatItWasGiven) {
    items_t items = kItems;
    const CBatchAreaDevToken token(items, 5, true, false);
    items.clear();
    EXPECT_EQ(token.GetItems(), kItems);
    EXPECT_EQ(token.GetTotal(), 5U);
    EXPECT_TRUE(token.GetFlagA());
    EXPECT_FALSE(token.GetFlagB());
}

TEST(BatchAreaDevToken, SerialFormIsCountTotalFlagsAndItems) {
    EXPECT_EQ(Serialised(CBatchAreaDevToken(kItems, 0x0102030405060708, true, false)), Golden());
}

TEST(BatchAreaDevToken, SerialFormIsTheDocumentedOne) {
    const std::string copy = "00112233445566778899aabbccddeeff";
    const items_t items{{copy + "/7", "d", 0}, {copy + "/8", "d/f", 3}};
    EXPECT_EQ(Serialised(CBatchAreaDevToken(items, 159, false, true)), tests::FormatExample("Batch token"));
}

TEST(BatchAreaDevToken, FlagsHaveTheirOwnPlaces) {
    EXPECT_EQ(Serialised(CBatchAreaDevToken({}, 0, false, true)), wire_text_t().Zeroes(16).U32(1).Bytes());
    EXPECT_EQ(Serialised(CBatchAreaDevToken({}, 0, true, false)), wire_text_t().Zeroes(12).U32(1).U32(0).Bytes());
}

TEST(BatchAreaDevToken, EmptyBatchIsTwentyBytesAndReadsBackEmpty) {
    const std::string bytes = Serialised(CBatchAreaDevToken({}, 9, true, true));
    EXPECT_EQ(bytes, wire_text_t().U32(0).U64(9).U32(1).U32(1).Bytes());
    EXPECT_EQ(bytes.size(), 20U);
    const auto token = Loaded(bytes);
    EXPECT_TRUE(token->GetItems().empty());
    EXPECT_EQ(token->GetTotal(), 9U);
}

TEST(BatchAreaDevToken, ReadsWhatItWroteInTheSameOrder) {
    items_t items;
    for (int i = 0; i < 300; ++i) {
        items.push_back({std::string(static_cast<std::size_t>(i), 'f'), "/s" + std::to_string(i),
                         static_cast<std::uint64_t>(i) << 40});
    }
    for (const bool flag : {false, true}) {
        const auto token = Loaded(Serialised(CBatchAreaDevToken(items, ~std::uint64_t{0}, flag, !flag)));
        EXPECT_EQ(token->GetItems(), items);
        EXPECT_EQ(token->GetTotal(), ~std::uint64_t{0});
        EXPECT_EQ(token->GetFlagA(), flag);
        EXPECT_EQ(token->GetFlagB(), !flag);
    }
}

TEST(BatchAreaDevToken, AnyFlagButZeroIsTrue) {
    const auto token = Loaded(wire_text_t().U32(0).U64(0).U32(256).U32(0x80000000).Bytes());
    EXPECT_TRUE(token->GetFlagA());
    EXPECT_TRUE(token->GetFlagB());
}

TEST(BatchAreaDevToken, ReadsNothingBehindTheLastItem) {
    const auto channel = std::make_shared<tests::scripted_dev_t>(Golden());
    channel->input += "rest";
    io::binary_stream_tt stream(channel);
    CBatchAreaDevToken::Unserial(stream);
    EXPECT_EQ(channel->input.size() - channel->position, 4U);
}

TEST(BatchAreaDevToken, FormCutAtAnyByteIsRefused) {
    const std::string whole = Golden();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const auto caught = tests::CatchError([&] { Loaded(whole.substr(0, length)); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc") << length;
        EXPECT_EQ(caught.message, kReadFailure) << length;
        EXPECT_THAT(caught.causes,
                    ElementsAre(testing::MatchesRegex("Failed to retrieve value from the binary stream: received less "
                                                      "bytes \\([0-9]+\\) than expected \\([0-9]+\\)\\.")))
            << length;
    }
}

TEST(BatchAreaDevToken, ShortPathIsToldWithItsBytes) {
    const auto caught =
        tests::CatchError([] { Loaded(wire_text_t().U32(1).U64(0).U32(0).U32(0).U32(6).Raw("/tmp").Bytes()); });
    EXPECT_EQ(caught.what,
              "Failed to deserialize batch file upload area token.\n"
              "Failed to retrieve value from the binary stream: received less bytes (4) than expected (6).");
}

TEST(BatchAreaDevToken, CountThatLiesEndsWithTheItems) {
    const std::string bytes = wire_text_t().U32(0xFFFFFFFF).U64(0).U32(0).U32(0).String("a").String("b").U64(1).Bytes();
    EXPECT_THAT(tests::CatchError([&] { Loaded(bytes); }).causes,
                ElementsAre("Failed to retrieve value from the binary stream: received less bytes (0) than expected "
                            "(4)."));
}

TEST(BatchAreaDevToken, LengthThatLiesIsRefusedBeforeItsBytesAreRead) {
    for (const bool second : {false, true}) {
        wire_text_t form;
        form.U32(1).U64(0).U32(0).U32(0);
        if (second) {
            form.String("a");
        }
        const auto channel = std::make_shared<tests::scripted_dev_t>(form.U32(0xFFFFFFFF).Raw("/x").Bytes());
        io::binary_stream_tt stream(channel);
        const auto caught = tests::CatchError([&] { CBatchAreaDevToken::Unserial(stream); });
        EXPECT_EQ(caught.message, kReadFailure);
        EXPECT_THAT(caught.causes, ElementsAre("String of [4294967295] bytes in the binary stream is longer than the "
                                               "allowed [65536]."));
        EXPECT_EQ(channel->input.size() - channel->position, 2U);
    }
}

TEST(BatchAreaDevToken, LongestPathsAreTaken) {
    const items_t items{{std::string(65536, 'a'), std::string(65536, 'b'), 1}};
    EXPECT_EQ(Loaded(Serialised(CBatchAreaDevToken(items, 0, false, false)))->GetItems(), items);
}

TEST(BatchAreaDevToken, LongestTokenIsTakenAndALongerOneRefused) {
    const items_t items(511, {std::string(65536, 'a'), "", 1});
    items_t longest = items;
    longest.push_back({std::string(65536 - 20 - 512 * 16, 'b'), "", 1});
    const std::string form = Serialised(CBatchAreaDevToken(longest, 0, false, false));
    EXPECT_EQ(form.size(), CBatchAreaDevToken::kMaxSerialBytes);
    EXPECT_EQ(Loaded(form)->GetItems(), longest);
    longest.back().firstPath += 'b';
    const auto caught = tests::CatchError([&] { Loaded(Serialised(CBatchAreaDevToken(longest, 0, false, false))); });
    EXPECT_EQ(caught.message, kReadFailure);
    EXPECT_THAT(caught.causes, ElementsAre("Batch token is longer than the allowed [33554432] bytes."));
}

TEST(BatchAreaDevToken, FailureToSerialiseIsWrapped) {
    for (const auto& [room, cause] : std::map<std::size_t, std::string>{
             {3, "written less bytes (3) than expected (4)."},
             {11, "written less bytes (7) than expected (8)."},
             {26, "written less bytes (2) than expected (5)."},
             {66, "written less bytes (7) than expected (8)."},
         }) {
        const auto channel = std::make_shared<tests::scripted_dev_t>();
        channel->room = room;
        io::binary_stream_tt stream(channel);
        const auto caught = tests::CatchError([&] { CBatchAreaDevToken(kItems, 1, true, false).Serial(stream); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, "Failed to serialize batch file upload area token.");
        EXPECT_THAT(caught.causes, ElementsAre("Failed to write value to the binary stream: " + cause));
    }
}

}  // namespace
