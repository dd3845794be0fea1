#include "tarn/memfs/memfs_path.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/caught.h"

namespace {

using tarn::memfs::memfs_path_t;

static_assert(sizeof(memfs_path_t) == sizeof(std::string), "the slot's name is all there is");

TEST(MemfsPathTest, ADefaultPathHasAnEmptyName) {
    EXPECT_EQ(memfs_path_t().GetSlotName(), "");
    EXPECT_EQ(memfs_path_t().ToString(), "MemFs://");
}

TEST(MemfsPathTest, ThePrefixHasOneSpelling) {
    EXPECT_EQ(memfs_path_t::GetMemFsPrefix(), "MemFs://");
}

TEST(MemfsPathTest, ThePrefixIsRecognisedInAnyCase) {
    for (const char* const path : {"MEMFS://x", "memfs://x", "MemFs://x", "mEmFS://x"}) {
        EXPECT_TRUE(memfs_path_t::IsMemFsPath(path));
        EXPECT_EQ(memfs_path_t(path).GetSlotName(), "x");
        EXPECT_EQ(memfs_path_t(path).ToString(), "MemFs://x");
    }
}

TEST(MemfsPathTest, TheNameIsTheRestAsItStands) {
    EXPECT_EQ(memfs_path_t("MemFs://").GetSlotName(), "");
    EXPECT_EQ(memfs_path_t("memfs://a/b").GetSlotName(), "a/b");
    EXPECT_EQ(memfs_path_t("memfs:// A/ ").GetSlotName(), " A/ ");
    EXPECT_EQ(memfs_path_t("memfs:///").GetSlotName(), "/");
    EXPECT_EQ(memfs_path_t("memfs://MemFs://x").GetSlotName(), "MemFs://x");
    EXPECT_EQ(memfs_path_t(std::string("memfs://a\0b", 11)).GetSlotName(), std::string("a\0b", 3));
    EXPECT_EQ(memfs_path_t("memfs://\xff\xfe").GetSlotName(), "\xff\xfe");
}

TEST(MemfsPathTest, OtherPathsAreRefusedWithTheTextAsItStands) {
    for (const char* const path :
         {"", "MemFs:/", "MemFs:/x", "MemFs:\\\\x", " MemFs://x", "/tmp/MemFs://x", "FlrFS://x"}) {
        EXPECT_FALSE(memfs_path_t::IsMemFsPath(path));
        const auto caught = tests::Catch([&] { memfs_path_t parsed(path); });
        EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
        EXPECT_EQ(caught.what, "Invalid MemFS path: [%1].");
    }
}

TEST(MemfsPathTest, AFailedParseLeavesThePathAsItWas) {
    memfs_path_t path("MemFs://before");
    tests::Catch([&] { path.Parse("after"); });
    EXPECT_EQ(path.GetSlotName(), "before");
    path.Parse("MemFs://after");
    EXPECT_EQ(path.GetSlotName(), "after");
}

TEST(MemfsPathTest, AnyNameCanBeSet) {
    memfs_path_t path;
    path.SetSlotName("MemFs://odd / name");
    EXPECT_EQ(path.GetSlotName(), "MemFs://odd / name");
    EXPECT_EQ(path.ToString(), "MemFs://MemFs://odd / name");
}

}  // namespace
