#include "agent/root/name_rules.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"

namespace agent {
namespace {

using namespace std::string_literals;

struct refused_t {
    std::string name;
    std::string fault;
};

TEST(NameRules, EveryUnsafeNameIsRefusedWithItsReason) {
    std::string tooDeep(4096, 'a');
    for (const std::size_t slash : {250U, 500U}) {
        tooDeep[slash] = '/';
    }
    std::string longInside(260, 'n');
    longInside[1] = '/';
    const refused_t corpus[] = {
        {"", "it is empty"},
        {"/", "it is absolute"},
        {"/etc/passwd", "it is absolute"},
        {"//etc", "it is absolute"},
        {"..", "it has a component \"..\""},
        {"../x", "it has a component \"..\""},
        {"a/..", "it has a component \"..\""},
        {"a/../../b", "it has a component \"..\""},
        {".", "it has a component \".\""},
        {"./a", "it has a component \".\""},
        {"a/.", "it has a component \".\""},
        {"a/./b", "it has a component \".\""},
        {"a//b", "it has an empty component"},
        {"a/", "it has an empty component"},
        {"a\0b"s, "it contains a NUL byte"},
        {"\0"s, "it contains a NUL byte"},
        {"a/..\0"s, "it contains a NUL byte"},
        {std::string(256, 'n'), "it has a component of more than 255 bytes"},
        {longInside + "/b", "it has a component of more than 255 bytes"},
        {tooDeep, "it has more than 4095 bytes"},
        {".tarn-staging", "the staging folder belongs to the agent"},
        {".tarn-staging/x", "the staging folder belongs to the agent"},
        {".Tarn-STAGING/x", "the staging folder belongs to the agent"},
    };
    for (const refused_t& one : corpus) {
        EXPECT_EQ(FindNameFault(one.name), one.fault) << one.name;
        EXPECT_THROW(CheckName(one.name), exc::CRuntimeExc) << one.name;
    }
}

TEST(NameRules, EveryOrdinaryNamePasses) {
    std::string longest(4095, 'n');
    for (std::size_t slash = 255; slash < longest.size(); slash += 256) {
        longest[slash] = '/';
    }
    const std::string corpus[] = {
        "a",
        "a/b/c",
        "...",
        "..a",
        "a..",
        ".hidden",
        "a b",
        "a\nb",
        "\xff\xfe/\x80",
        "\xc3\x28",
        "back\\slash",
        "a:/b",
        "-rf",
        "~",
        "a/.tarn-staging",
        ".tarn-stagin",
        ".tarn-staging2",
        std::string(255, 'n'),
        longest,
    };
    for (const std::string& name : corpus) {
        EXPECT_EQ(FindNameFault(name), "") << name;
        EXPECT_NO_THROW(CheckName(name)) << name;
    }
}

TEST(NameRules, StagingFolderIsAnOrdinaryNameWhereItIsNotHidden) {
    EXPECT_EQ(FindNameFault(".tarn-staging/x", EStagingFolder::eOrdinary), "");
}

TEST(NameRules, ErrorNamesThePathAndCutsALongOne) {
    try {
        CheckName("a/../b");
        FAIL() << "nothing was thrown";
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_STREQ(error.what(), "Path [a/../b] is refused: it has a component \"..\".");
    }
    try {
        CheckName("a\0b"s);
        FAIL() << "nothing was thrown";
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_STREQ(error.what(), "Path [a\\x00b] is refused: it contains a NUL byte.");
    }
    try {
        CheckName(std::string(100000, 'x'));
        FAIL() << "nothing was thrown";
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_EQ(error.what(),
                  std::string("Path [").append(300, 'x') + "...] is refused: it has more than 4095 bytes.");
    }
}

}  // namespace
}  // namespace agent
