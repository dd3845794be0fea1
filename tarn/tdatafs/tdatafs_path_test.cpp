#include "tarn/tdatafs/tdatafs_path.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/caught_error.h"

namespace tarn::tdatafs {
namespace {

constexpr std::uint64_t kMax = 18446744073709551615U;

TEST(TdatafsPath, ConstantsAreSpelledAsUsersKnowThem) {
    EXPECT_EQ(tdatafs_path_t::s_tdatafsPrefixLin, "tdatafs://");
    EXPECT_EQ(tdatafs_path_t::s_tdatafsPrefixWin, std::string("tdatafs:") + '\\' + '\\');
    EXPECT_EQ(tdatafs_path_t::s_tdatafsPrefixLin.size(), 10U);
    EXPECT_EQ(tdatafs_path_t::s_tdatafsPrefixWin.size(), 10U);
    EXPECT_EQ(tdatafs_path_t::s_delimeter, "|");
    EXPECT_EQ(tdatafs_path_t::kAbsent, kMax);
}

TEST(TdatafsPath, BuildsItsTextFromThreeValues) {
    EXPECT_EQ(tdatafs_path_t("name", 5, 7).ToString(), "tdatafs://name|5|7");
    EXPECT_EQ(tdatafs_path_t("name", 5, 0).ToString(), "tdatafs://name|5|0");
    EXPECT_EQ(tdatafs_path_t("name", 5, kMax).ToString(), "tdatafs://name|5");
    EXPECT_EQ(tdatafs_path_t("", kMax, kMax - 1).ToString(), "tdatafs://|18446744073709551615|18446744073709551614");
}

TEST(TdatafsPath, ParsesNameAndNumbers) {
    const tdatafs_path_t path("tdatafs://name|5|7");
    EXPECT_EQ(path.GetName(), "name");
    EXPECT_EQ(path.GetFirst(), 5U);
    EXPECT_EQ(path.GetSecond(), 7U);
    EXPECT_EQ(path.ToString(), "tdatafs://name|5|7");
}

TEST(TdatafsPath, BackslashPrefixParsesAndIsWrittenWithSlashes) {
    const tdatafs_path_t path("tdatafs:\\\\x|5");
    EXPECT_EQ(path.GetName(), "x");
    EXPECT_EQ(path.GetFirst(), 5U);
    EXPECT_EQ(path.GetSecond(), tdatafs_path_t::kAbsent);
    EXPECT_EQ(path.ToString(), "tdatafs://x|5");
}

TEST(TdatafsPath, NameAloneKeepsFirstNumberZeroAndNoSecond) {
    for (const std::string text : {"tdatafs://name", "tdatafs://"}) {
        const tdatafs_path_t path(text);
        EXPECT_EQ(path.GetName(), text.substr(10));
        EXPECT_EQ(path.GetFirst(), 0U);
        EXPECT_EQ(path.GetSecond(), tdatafs_path_t::kAbsent);
        EXPECT_EQ(path.ToString(), text + "|0");
    }
}

TEST(TdatafsPath, EmptyNameKeepsItsField) {
    const tdatafs_path_t path("tdatafs://|5");
    EXPECT_EQ(path.GetName(), "");
    EXPECT_EQ(path.GetFirst(), 5U);
}

TEST(TdatafsPath, FieldsAfterTheThirdAreIgnored) {
    const tdatafs_path_t path("tdatafs://n|1|2|x|y");
    EXPECT_EQ(path.ToString(), "tdatafs://n|1|2");
}

TEST(TdatafsPath, SecondNumberOfAllOnesMeansNone) {
    EXPECT_EQ(tdatafs_path_t("tdatafs://n|1|18446744073709551615").ToString(), "tdatafs://n|1");
}

TEST(TdatafsPath, FieldThatIsNoNumberIsRefused) {
    for (const std::string text : {"tdatafs://n|x", "tdatafs://n|", "tdatafs://n|1|-2", "tdatafs://n|1|"}) {
        EXPECT_THROW(tdatafs_path_t{text}, exc::CRuntimeExc) << text;
    }
}

TEST(TdatafsPath, RecognisesBothPrefixesAtTheStartInTheirCase) {
    EXPECT_TRUE(tdatafs_path_t::IsTapeDataFsPath("tdatafs://"));
    EXPECT_TRUE(tdatafs_path_t::IsTapeDataFsPath("tdatafs:\\\\x"));
    for (const std::string text : {"", "tdatafs:/x", "tdatafs:\\x", "TDATAFS://x", "Tdatafs://x", "TDATAFS:\\\\x",
                                   "/tdatafs://x", "x tdatafs:\\\\y", "tdatafs:/\\x"}) {
        EXPECT_FALSE(tdatafs_path_t::IsTapeDataFsPath(text)) << text;
    }
}

TEST(TdatafsPath, OtherPathsAreNotParsed) {
    const auto caught = tests::CatchError([] { tdatafs_path_t{std::string("/a/tdatafs://x")}; });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "'/a/tdatafs://x' is not a valid tdatafs path");
}

}  // namespace
}  // namespace tarn::tdatafs
