#include "tarn/lindir/lin_dir_enum.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/guid/guid.h"
#include "mirrowen/util/str.h"
#include "mirrowen/xml/xml_text.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace tarn::lindir {
namespace {

using info_t = lin_dir_enum::SEntryInfo;
using logging::ELevel;
using tests::CatchError;
using tests::Throws;

static_assert(std::is_same_v<decltype(&lin_dir_enum::StartEnum),
                             std::string (lin_dir_enum::*)(const std::wstring&, std::wstring&)>);
static_assert(std::is_same_v<decltype(&lin_dir_enum::StartEnumRecursive),
                             std::string (lin_dir_enum::*)(const std::wstring&, std::wstring&, std::wstring&)>);
static_assert(std::is_same_v<decltype(&lin_dir_enum::GenerateNewRegexMask), bool (*)(std::string&)>);
static_assert(std::is_same_v<decltype(&lin_dir_enum::formatPermissions), std::string (*)(unsigned int, bool)>);
static_assert(offsetof(info_t, name) < offsetof(info_t, dir) && offsetof(info_t, dir) < offsetof(info_t, link_to) &&
              offsetof(info_t, link_to) < offsetof(info_t, user_name) &&
              offsetof(info_t, user_name) < offsetof(info_t, group_name) &&
              offsetof(info_t, group_name) < offsetof(info_t, mode) &&
              offsetof(info_t, mode) < offsetof(info_t, is_reg));
static_assert(offsetof(info_t, is_dir) == offsetof(info_t, is_reg) + 1 &&
              offsetof(info_t, is_link) == offsetof(info_t, is_reg) + 2 &&
              offsetof(info_t, is_chr) == offsetof(info_t, is_reg) + 3 &&
              offsetof(info_t, is_blk) == offsetof(info_t, is_reg) + 4 &&
              offsetof(info_t, is_fifo) == offsetof(info_t, is_reg) + 5 &&
              offsetof(info_t, is_sock) == offsetof(info_t, is_reg) + 6 &&
              offsetof(info_t, has_sub_dirs) == offsetof(info_t, is_reg) + 7);
static_assert(offsetof(info_t, access_error) + 8 == offsetof(info_t, size) &&
              offsetof(info_t, size) + 8 == offsetof(info_t, mtime) &&
              offsetof(info_t, mtime) + 8 == offsetof(info_t, uid) &&
              offsetof(info_t, uid) + 8 == offsetof(info_t, gid));

class LinDirEnum : public testing::Test {
  protected:
    std::wstring Wide(const std::string& name) const { return util::str_utf82w(dir_ / name); }

    // What the description of `name` says of an attribute.
    std::string Told(const std::string& name, const char* attribute) {
        std::wstring xml;
        enumerator_.StartEnum(Wide(name), xml);
        tinyxml2::XMLDocument document;
        EXPECT_EQ(document.Parse(util::str_w2utf8(xml).c_str()), tinyxml2::XML_SUCCESS);
        const tinyxml2::XMLElement* const element = document.FirstChildElement("lists");
        EXPECT_EQ(element->NextSibling(), nullptr);
        const char* const value = element->Attribute(attribute);
        return value == nullptr ? "(none)" : xml::UnescapeText(value);
    }

    tests::temp_dir_t dir_;
    lin_dir_enum enumerator_;
};

TEST_F(LinDirEnum, RegularFileIsDescribed) {
    tests::WriteFile(dir_ / "b.txt", "text");
    std::filesystem::permissions(dir_ / "b.txt", std::filesystem::perms{0644});
    EXPECT_EQ(Told("b.txt", "file_name"), "b.txt");
    EXPECT_EQ(Told("b.txt", "file_dir"), dir_.path() + "/");
    EXPECT_EQ(Told("b.txt", "dir"), "0");
    EXPECT_EQ(Told("b.txt", "link"), "0");
    EXPECT_EQ(Told("b.txt", "is_reg"), "1");
    EXPECT_EQ(Told("b.txt", "mode"), "rw-r--r--");
    EXPECT_EQ(Told("b.txt", "size"), "4");
    EXPECT_EQ(Told("b.txt", "AccessError"), "(none)");
}

TEST_F(LinDirEnum, NamesThatNeedEscapingComeBack) {
    for (const std::string& name :
         std::vector<std::string>{"a b", "<&>\"'", "line\nbreak\ttab", "back\\slash", "\xC3\xA4\xE2\x82\xAC", "\x01"}) {
        tests::WriteFile(dir_ / name, "");
        EXPECT_EQ(Told(name, "file_name"), name);
    }
}

TEST_F(LinDirEnum, NameThatIsNotUtf8CannotBeDescribed) {
    tests::WriteFile(dir_ / "bad\xFF", "");
    std::wstring xml = L"before";
    const auto caught = CatchError([&] { enumerator_.StartEnum(Wide("bad\xFF"), xml); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_THAT(caught.message, testing::StartsWith("Unable to convert string to Unicode: "));
    EXPECT_EQ(xml, L"before");
}

TEST_F(LinDirEnum, LinkAtThePathIsFollowed) {
    tests::WriteFile(dir_ / "file", "text");
    std::filesystem::create_symlink("file", dir_ / "link");
    EXPECT_EQ(Told("link", "file_name"), "link");
    EXPECT_EQ(Told("link", "link"), "0");
    EXPECT_EQ(Told("link", "size"), "4");
}

TEST_F(LinDirEnum, EverySessionHasAnIdentifierOfItsOwn) {
    tests::WriteFile(dir_ / "file", "");
    std::wstring xml;
    const std::string first = enumerator_.StartEnum(Wide("file"), xml);
    const std::string second = enumerator_.StartEnum(Wide("file"), xml);
    EXPECT_NE(first, second);
    EXPECT_EQ(guid::guid_t::FromAStr(first).ToAStr(), first);
}

TEST_F(LinDirEnum, DirectoryIsRefusedAfterItWasOpened) {
    std::wstring xml;
    EXPECT_THAT(CatchError([&] { enumerator_.StartEnum(Wide(""), xml); }),
                Throws("std::runtime_error", "tarn/lindir/LinFileOp:GetDirDescExc -- not supported on this platform"));
}

TEST_F(LinDirEnum, MissingFileAndPathThroughAFileAreErrors) {
    std::wstring xml;
    EXPECT_THAT(CatchError([&] { enumerator_.StartEnum(Wide("missing"), xml); }),
                Throws("posix::errno_exc_t",
                       "Failed to open file [" + dir_ / "missing" + "] for reading: No such file or directory"));
    const std::string longName(300, 'x');
    EXPECT_THAT(CatchError([&] { enumerator_.StartEnum(Wide(longName), xml); }).type,
                testing::HasSubstr("filesystem_error"));
}

TEST_F(LinDirEnum, WalkOpensCompilesAndIsThenRefused) {
    const tests::log_capture_t log;
    std::wstring mask = L"*.TXT";
    std::wstring xml = L"before";
    for (const auto& begin :
         std::vector<std::function<void()>>{[&] { enumerator_.StartEnumRecursive(Wide(""), mask, xml); },
                                            [&] { enumerator_.RBegin(Wide(""), mask); }}) {
        EXPECT_THAT(CatchError(begin), Throws("std::runtime_error",
                                              "tarn/lindir/LinFileOp:GetDirDescExc -- not supported on this platform"));
    }
    EXPECT_EQ(log.Texts(ELevel::eInfo),
              (std::vector<std::string>{"Search mask is .*\\.txt", "Search mask is .*\\.txt"}));
    EXPECT_EQ(mask, L"*.TXT");
    EXPECT_EQ(xml, L"before");
}

TEST_F(LinDirEnum, WalkOfAMissingDirectoryFailsBeforeItsMaskIsLookedAt) {
    const tests::log_capture_t log;
    std::wstring mask = L"(";
    std::wstring xml;
    const std::string text = "Failed to open dir: " + dir_ / "missing" + ": No such file or directory";
    EXPECT_THAT(CatchError([&] { enumerator_.StartEnumRecursive(Wide("missing"), mask, xml); }),
                Throws("posix::errno_exc_t", text));
    EXPECT_THAT(CatchError([&] { enumerator_.RBegin(Wide("missing"), mask); }), Throws("posix::errno_exc_t", text));
    EXPECT_EQ(log.Texts(ELevel::eInfo).size(), 0U);
}

TEST_F(LinDirEnum, WalkingIsRefusedByName) {
    const auto refused = [](const std::string& operation, const std::function<void()>& call) {
        EXPECT_THAT(CatchError(call), Throws("std::runtime_error", "tarn/lindir/lin_dir_enum:" + operation +
                                                                       " -- not supported on this platform"));
    };
    std::wstring xml;
    refused("GetNext", [&] { enumerator_.GetNext(xml); });
    refused("GetNextRecursive", [&] { enumerator_.GetNextRecursive(xml); });
    refused("RNext", [&] { enumerator_.RNext(); });
    refused("IsDirEmpty", [&] { enumerator_.IsDirEmpty(L"/", false); });
}

}  // namespace
}  // namespace tarn::lindir
