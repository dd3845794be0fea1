#include "tarn/extentfs/extent_fs_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <type_traits>

#include "tarn/extentfs/extent_fs_path_parser.h"
#include "tests/support/caught_error.h"

namespace tarn::extentfs {
namespace {

using guid::guid_t;
using parser_t = SExtentFsPathParser;
using testing::ElementsAre;
using testing::Pair;
using tests::CatchError;
using tests::Throws;

const std::string kFirst = "01234567-89ab-cdef-fedc-ba9876543210";
const std::string kSecond = "00112233-4455-6677-8899-aabbccddeeff";

static_assert(offsetof(SExtentLocation, locationId) < offsetof(SExtentLocation, archId));
static_assert(offsetof(SExtentFsPath, location) < offsetof(SExtentFsPath, path));
static_assert(std::is_same_v<decltype(&parser_t::Serial), std::string (*)(const SExtentFsPath&)>);
static_assert(std::is_same_v<decltype(&parser_t::Unserial), SExtentFsPath (*)(const std::string&)>);
static_assert(
    std::is_same_v<decltype(&parser_t::ParseLocationArgs), SExtentLocation (*)(const std::vector<std::string>&)>);
static_assert(std::is_same_v<decltype(&parser_t::SelectKeyValuePairs),
                             void (*)(const std::vector<std::string>&, std::map<std::string, std::string>&)>);

SExtentLocation Location(const std::string& location, const std::string& archive = {}) {
    return {guid_t::FromAStr(location), archive.empty() ? guid_t() : guid_t::FromAStr(archive)};
}

TEST(ExtentLocation, WithoutIdentifiersIsLocal) {
    EXPECT_TRUE(SExtentLocation().IsLocal());
    EXPECT_FALSE(Location(kFirst).IsLocal());
    EXPECT_FALSE((SExtentLocation{guid_t(), guid_t::FromAStr(kFirst)}.IsLocal()));
}

TEST(ExtentLocation, EqualOnlyWhenBothIdentifiersAre) {
    EXPECT_TRUE(Location(kFirst, kSecond) == Location(kFirst, kSecond));
    EXPECT_FALSE(Location(kFirst, kSecond) != Location(kFirst, kSecond));
    EXPECT_TRUE(Location(kFirst, kSecond) != Location(kFirst));
    EXPECT_TRUE(Location(kFirst, kSecond) != Location(kSecond, kSecond));
}

TEST(ExtentLocation, OrdersByLocationThenArchiveEmptyFirst) {
    EXPECT_TRUE(SExtentLocation() < Location(kSecond));
    EXPECT_TRUE(Location(kSecond, kFirst) < Location(kFirst));
    EXPECT_TRUE(Location(kFirst) < Location(kFirst, kSecond));
    EXPECT_FALSE(Location(kFirst, kSecond) < Location(kFirst, kSecond));
}

TEST(ExtentFsPath, TextWithoutPrefixIsALocalPath) {
    for (const std::string& text :
         std::vector<std::string>{"", "/a/b", "extentexfs[x]/a", "ExtentExFS", " ExtentFS[" + kFirst + "]/a"}) {
        const SExtentFsPath path = SExtentFsPath::Unserial(text);
        EXPECT_TRUE(path.location.IsLocal()) << text;
        EXPECT_EQ(path.path, text);
        EXPECT_EQ(path.Serialize(), text);
    }
}

TEST(ExtentFsPath, BothPrefixesAreReadAndTheNewOneIsWritten) {
    for (const std::string prefix : {"ExtentExFS[", "ExtentFS["}) {
        const SExtentFsPath path = SExtentFsPath::Unserial(prefix + kFirst + "]/a");
        EXPECT_EQ(path.location, Location(kFirst));
        EXPECT_EQ(path.path, "/a");
        EXPECT_EQ(path.Serialize(), "ExtentExFS[" + kFirst + "]/a");
    }
}

TEST(ExtentFsPath, ArchiveIsANamedArgument) {
    const SExtentFsPath path(Location(kFirst, kSecond), "p");
    EXPECT_EQ(path.Serialize(), "ExtentExFS[" + kFirst + ",arch=" + kSecond + "]p");
    EXPECT_EQ(SExtentFsPath::Unserial(path.Serialize()).location, path.location);
    EXPECT_EQ(SExtentFsPath::Unserial("ExtentExFS[" + kFirst + ", arch = " + kSecond + " ]p").location, path.location);
    EXPECT_TRUE(SExtentFsPath::Unserial("ExtentExFS[" + kFirst + "]p").location.archId.IsEmpty());
}

TEST(ExtentFsPath, EmptyLocationOfAnArchiveIsWrittenAndRead) {
    const SExtentFsPath path({guid_t(), guid_t::FromAStr(kFirst)}, "p");
    EXPECT_EQ(path.Serialize(), "ExtentExFS[00000000-0000-0000-0000-000000000000,arch=" + kFirst + "]p");
    EXPECT_EQ(SExtentFsPath::Unserial(path.Serialize()).location, path.location);
}

TEST(ExtentFsPath, FirstClosingBracketEndsTheArguments) {
    const SExtentFsPath path = SExtentFsPath::Unserial("ExtentExFS[" + kFirst + "]/a],b]c");
    EXPECT_EQ(path.path, "/a],b]c");
    EXPECT_EQ(path.Serialize(), "ExtentExFS[" + kFirst + "]/a],b]c");
}

TEST(ExtentFsPath, LocalPathThatLooksRemoteDoesNotComeBack) {
    const SExtentFsPath path({}, "ExtentFS[" + kFirst + "]p");
    EXPECT_FALSE(SExtentFsPath::Unserial(path.Serialize()).location.IsLocal());
}

TEST(ExtentFsPath, MalformedRemoteFormNamesTheTextAndTheCause) {
    const auto expect = [](const std::string& text, const std::string& cause) {
        const auto caught = CatchError([&] { SExtentFsPath::Unserial(text); });
        EXPECT_THAT(caught, Throws("exc::CRuntimeExc", "Failed to parse externalFs path '" + text + "'."));
        EXPECT_THAT(caught.causes, ElementsAre(cause));
        EXPECT_THAT(caught.causeTypes, ElementsAre("exc::CRuntimeExc"));
    };
    expect("ExtentExFS[" + kFirst, "There is no close bracket in path.");
    expect("ExtentFS[", "There is no close bracket in path.");
    expect("ExtentExFS[]/a", "Invalid location is specified");
    expect("ExtentExFS[nonsense]/a", "'nonsense' is not a GUID.");
    expect("ExtentExFS[ " + kFirst + "]/a", "' " + kFirst + "' is not a GUID.");
    expect("ExtentExFS[,arch=" + kFirst + "]/a", "'' is not a GUID.");
    expect("ExtentExFS[" + kFirst + ",arch=]/a", "'' is not a GUID.");
}

TEST(ExtentFsPathParser, IdentifiersLoseTheirBrackets) {
    EXPECT_EQ(parser_t::ToStrWithoutBrackets(guid_t::FromAStr(kFirst)), kFirst);
}

TEST(ExtentFsPathParser, PairsAreTrimmedLaterOnesWinAndOthersAreSkipped) {
    std::map<std::string, std::string> values = {{"kept", "1"}, {"a", "old"}};
    parser_t::SelectKeyValuePairs({"no pair", " a = b=c ", "x=1", "x=2", "=", "y="}, values);
    EXPECT_THAT(values, ElementsAre(Pair("", ""), Pair("a", "b=c"), Pair("kept", "1"), Pair("x", "2"), Pair("y", "")));
}

TEST(ExtentFsPathParser, AbsentKeysLeaveTheValueAlone) {
    const std::map<std::string, std::string> values = {{"arch", kFirst}};
    std::string text = "before";
    guid_t id = guid_t::FromAStr(kSecond);
    EXPECT_FALSE(parser_t::TryFindArgVal(values, "other", text));
    EXPECT_FALSE(parser_t::TryFindUidArgVal(values, "Arch", id));
    EXPECT_EQ(text, "before");
    EXPECT_EQ(id, guid_t::FromAStr(kSecond));
    EXPECT_TRUE(parser_t::TryFindArgVal(values, "arch", text));
    EXPECT_TRUE(parser_t::TryFindUidArgVal(values, "arch", id));
    EXPECT_EQ(text, kFirst);
    EXPECT_EQ(id, guid_t::FromAStr(kFirst));
}

TEST(ExtentFsPathParser, NoArgumentsAreNoLocation) {
    EXPECT_THAT(CatchError([] { parser_t::ParseLocationArgs({}); }),
                Throws("exc::CRuntimeExc", "Invalid location is specified"));
}

TEST(ExtentFsPathParser, EveryRemotePathComesBack) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 engine(seed);
    for (int run = 0; run < 2000; ++run) {
        guid_t::bytes_t location = {1};
        guid_t::bytes_t archive = {};
        location[15] = static_cast<std::uint8_t>(engine());
        archive[engine() % 16] = static_cast<std::uint8_t>(engine());
        std::string text(engine() % 8, '\0');
        for (char& c : text) {
            c = "],=[a/ \xFF"[engine() % 8];
        }
        const SExtentFsPath path({guid_t(location), guid_t(archive)}, text);
        const SExtentFsPath back = SExtentFsPath::Unserial(path.Serialize());
        ASSERT_EQ(back.location, path.location);
        ASSERT_EQ(back.path, path.path);
    }
}

}  // namespace
}  // namespace tarn::extentfs
