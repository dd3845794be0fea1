#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/file_area_dev_factory.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tests/support/caught_error.h"
#include "tests/support/format_example.h"
#include "tests/support/scripted_dev.h"

namespace {

using testing::ElementsAre;

static_assert(std::is_base_of_v<io::area::IAreaDevToken, tarn::CFileAreaDevToken>);
static_assert(std::is_base_of_v<io::area::IAreaDevFactory, tarn::CFileAreaDevFactory>);
static_assert(std::is_empty_v<io::area::IAreaDevFactory> || sizeof(tarn::CFileAreaDevFactory) == sizeof(void*));

std::string Serialised(const tarn::CFileAreaDevToken& token) {
    const auto channel = std::make_shared<tests::scripted_dev_t>();
    io::binary_stream_tt stream(channel);
    token.Serial(stream);
    return channel->output;
}

std::shared_ptr<tarn::CFileAreaDevToken> Loaded(const std::string& bytes) {
    io::binary_stream_tt stream(std::make_shared<tests::scripted_dev_t>(bytes));
    return std::dynamic_pointer_cast<tarn::CFileAreaDevToken>(tarn::CFileAreaDevToken::Unserial(stream));
}

TEST(FileAreaDevToken, IsOfTypeFileAndKeepsItsPath) {
    const std::string path("/a\xff b\0c", 7);
    tarn::CFileAreaDevToken token(path);
    EXPECT_EQ(tarn::CFileAreaDevToken::GetTypeString(), "file");
    EXPECT_EQ(token.GetType(), "file");
    EXPECT_EQ(token.GetPath(), path);
    EXPECT_EQ(token.Path4Log(), path);
}

TEST(FileAreaDevToken, MonikerIsLengthAndBytes) {
    EXPECT_EQ(Serialised(tarn::CFileAreaDevToken("/tmp/a")), std::string("\x06\0\0\0/tmp/a", 10));
    EXPECT_EQ(Serialised(tarn::CFileAreaDevToken("/tmp/a")), tests::FormatExample("File moniker"));
}

TEST(FileAreaDevToken, EmptyPathIsFourZeroBytes) {
    const std::string bytes(4, '\0');
    EXPECT_EQ(Serialised(tarn::CFileAreaDevToken("")), bytes);
    EXPECT_EQ(Loaded(bytes)->GetPath(), "");
}

TEST(FileAreaDevToken, MonikerComesBackAsItWas) {
    const std::string path = "MemFs://{x}/\xc3\xa4\n" + std::string(300, 'p');
    EXPECT_EQ(Loaded(Serialised(tarn::CFileAreaDevToken(path)))->GetPath(), path);
}

TEST(FileAreaDevToken, ReadsNothingBehindTheMoniker) {
    const auto channel = std::make_shared<tests::scripted_dev_t>(std::string("\x01\0\0\0/rest", 9));
    io::binary_stream_tt stream(channel);
    tarn::CFileAreaDevToken::Unserial(stream);
    EXPECT_EQ(channel->input.size() - channel->position, 4U);
}

TEST(FileAreaDevToken, ShortMonikerFailsWithTheStreamsText) {
    const auto caught = tests::CatchError([] { Loaded(std::string("\x06\0\0\0/tmp", 8)); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Failed to de-serialize moniker of file reader object.");
    EXPECT_THAT(caught.causes, ElementsAre("Failed to retrieve value from the binary stream: received less bytes (4) "
                                           "than expected (6)."));
}

TEST(FileAreaDevToken, ShortLengthFailsWithTheStreamsText) {
    EXPECT_THAT(tests::CatchError([] { Loaded("\x06"); }).causes,
                ElementsAre("Failed to retrieve value from the binary stream: received less bytes (1) than expected "
                            "(4)."));
}

TEST(FileAreaDevToken, LengthThatLiesCostsNoMemory) {
    const auto channel = std::make_shared<tests::scripted_dev_t>(std::string("\xff\xff\xff\xff/x", 6));
    io::binary_stream_tt stream(channel);
    const auto caught = tests::CatchError([&] { tarn::CFileAreaDevToken::Unserial(stream); });
    EXPECT_EQ(caught.message, "Failed to de-serialize moniker of file reader object.");
    EXPECT_THAT(caught.causes, ElementsAre(testing::StartsWith("Failed to retrieve value from the binary stream: "
                                                               "received less bytes (2) than expected ")));
    EXPECT_LE(channel->largestRead, 65536U);
}

TEST(FileAreaDevToken, LongestPathIsTakenAndALongerOneRefused) {
    const std::string longest(65536, 'p');
    EXPECT_EQ(Loaded(Serialised(tarn::CFileAreaDevToken(longest)))->GetPath(), longest);
    EXPECT_THAT(tests::CatchError([&] { Loaded(Serialised(tarn::CFileAreaDevToken(longest + 'q'))); }).causes,
                ElementsAre("Path of [65537] bytes is longer than the allowed [65536]."));
}

TEST(FileAreaDevToken, FailureToSerialiseNamesThePath) {
    const auto channel = std::make_shared<tests::scripted_dev_t>();
    channel->room = 7;
    io::binary_stream_tt stream(channel);
    const auto caught = tests::CatchError([&] { tarn::CFileAreaDevToken("/tmp/a").Serial(stream); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Failed to serialize moniker for file reader. File path: '/tmp/a'.");
    EXPECT_THAT(caught.causes, ElementsAre("Failed to write value to the binary stream: written less bytes (3) than "
                                           "expected (6)."));
}

TEST(FileAreaDevFactory, AddsItsTypeToTheList) {
    std::vector<std::string> types{"other"};
    tarn::CFileAreaDevFactory().EnumTokenTypes(types);
    EXPECT_THAT(types, ElementsAre("other", "file"));
}

TEST(FileAreaDevFactory, LoadsTokensOfItsType) {
    io::binary_stream_tt stream(std::make_shared<tests::scripted_dev_t>(std::string("\x02\0\0\0/a", 6)));
    const auto token = tarn::CFileAreaDevFactory().LoadToken("file", stream);
    ASSERT_NE(std::dynamic_pointer_cast<tarn::CFileAreaDevToken>(token), nullptr);
    EXPECT_EQ(token->Path4Log(), "/a");
}

TEST(FileAreaDevFactory, RefusesOtherTypesWithoutReading) {
    for (const std::string type : {"File", "file ", "", "batch"}) {
        const auto channel = std::make_shared<tests::scripted_dev_t>(std::string("\x02\0\0\0/a", 6));
        io::binary_stream_tt stream(channel);
        const auto caught = tests::CatchError([&] { tarn::CFileAreaDevFactory().LoadToken(type, stream); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, "Specified type of reader '" + type + "' is not supported by the file factory.");
        EXPECT_EQ(channel->input.size() - channel->position, 6U);
    }
}

TEST(FileAreaDevFactory, MakesNoReader) {
    const auto caught = tests::CatchError(
        [] { tarn::CFileAreaDevFactory().CreateReadDev(std::make_shared<tarn::CFileAreaDevToken>("/a")); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.what, "CFileAreaDevFactory::CreateReadDev(): not implemented.");
}

TEST(FileAreaDevFactory, MakesNoHvirWriter) {
    unsigned long size = 1;
    const auto caught = tests::CatchError([&] {
        tarn::CFileAreaDevFactory().CreateWriteDevForHVIR(std::make_shared<tarn::CFileAreaDevToken>("/a"), &size);
    });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.what, "CFileAreaDevFactory::CreateWriteDevForHVIR not implemented");
}

}  // namespace
