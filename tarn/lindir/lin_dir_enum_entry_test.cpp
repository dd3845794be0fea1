#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/posix/errno_exc.h"
#include "tarn/lindir/lin_dir_enum.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace tarn::lindir {
namespace {

using info_t = lin_dir_enum::SEntryInfo;
using logging::ELevel;
using tests::CatchError;
using tests::Throws;

/// Opens what fills an entry, and can look into directories when it is told to.
class filler_t : public lin_dir_enum {
  public:
    using lin_dir_enum::fillEntryInfo;
    bool IsDirEmpty(const std::wstring& path, bool subDirectoriesOnly) override {
        return look ? look(path, subDirectoriesOnly) : lin_dir_enum::IsDirEmpty(path, subDirectoriesOnly);
    }
    std::function<bool(const std::wstring&, bool)> look;
};

class LinDirEnumEntry : public testing::Test {
  protected:
    info_t Fill(const std::string& name) {
        struct stat attributes {};
        EXPECT_EQ(::lstat((dir_ / name).c_str(), &attributes), 0);
        info_t info;
        filler_.fillEntryInfo(info, attributes, dir_.path(), name);
        return info;
    }

    // Attributes of nothing in particular.
    info_t FillMode(mode_t mode) {
        struct stat attributes {};
        attributes.st_mode = mode;
        info_t info;
        filler_.fillEntryInfo(info, attributes, dir_.path(), "name");
        return info;
    }

    tests::temp_dir_t dir_;
    tests::log_capture_t log_;
    filler_t filler_;
};

TEST_F(LinDirEnumEntry, FileIsToldInFull) {
    tests::WriteFile(dir_ / "file", "content");
    ASSERT_EQ(::chmod((dir_ / "file").c_str(), 04751), 0);
    const timespec times[2] = {{1, 0}, {1100000000, 999999999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (dir_ / "file").c_str(), times, 0), 0);
    const info_t info = Fill("file");
    EXPECT_EQ(info.name, "file");
    EXPECT_EQ(info.dir, dir_.path() + "/");
    EXPECT_EQ(info.link_to, "");
    EXPECT_EQ(info.mode, "rwsr-x--x");
    EXPECT_TRUE(info.is_reg);
    EXPECT_FALSE(info.is_dir || info.is_link || info.is_chr || info.is_blk || info.is_fifo || info.is_sock);
    EXPECT_FALSE(info.has_sub_dirs);
    EXPECT_EQ(info.access_error, 0U);
    EXPECT_EQ(info.size, 7U);
    EXPECT_EQ(info.mtime, 1100000000U);
    EXPECT_EQ(info.uid, ::geteuid());
    EXPECT_EQ(info.gid, ::getegid());
    EXPECT_EQ(log_.Texts(ELevel::eWarn).size(), 0U) << log_.Dump();
}

TEST_F(LinDirEnumEntry, AccountsAreTheNamesOfTheNumbers) {
    const info_t info = FillMode(S_IFREG);  // number 0
    EXPECT_EQ(info.user_name, "root");
    EXPECT_EQ(info.group_name, "root");
}

TEST_F(LinDirEnumEntry, AccountsThatDoNotExistStayEmptyWithAWarning) {
    struct stat attributes {};
    attributes.st_mode = S_IFREG | 0640;
    attributes.st_uid = 3999999999U;
    attributes.st_gid = 3999999998U;
    info_t info;
    filler_.fillEntryInfo(info, attributes, "/d", "n");
    EXPECT_EQ(info.user_name, "");
    EXPECT_EQ(info.group_name, "");
    EXPECT_EQ(info.uid, 3999999999U);
    EXPECT_EQ(info.gid, 3999999998U);
    EXPECT_EQ(info.mode, "rw-r-----");
    EXPECT_EQ(log_.Texts(ELevel::eWarn),
              (std::vector<std::string>{"Unable to call getpwuid for item [/d/n]. No such file or directory",
                                        "Unable to call getgrgid for item [/d/n]. No such file or directory"}));
}

TEST_F(LinDirEnumEntry, EveryTypeHasItsFlag) {
    EXPECT_TRUE(FillMode(0x8000).is_reg);
    EXPECT_TRUE(FillMode(0x2000).is_chr);
    EXPECT_TRUE(FillMode(0x6000).is_blk);
    EXPECT_TRUE(FillMode(0x1000).is_fifo);
    EXPECT_TRUE(FillMode(0xC000).is_sock);
    EXPECT_TRUE(FillMode(0xA000).is_link);
    EXPECT_FALSE(FillMode(0x6000).is_chr);
    EXPECT_FALSE(FillMode(0xC000).is_reg);
    filler_.look = [](const std::wstring&, bool) { return true; };
    EXPECT_TRUE(FillMode(0x4000).is_dir);
}

TEST_F(LinDirEnumEntry, LinkHasItsStoredTargetAndTheKindOfWhatItPointsTo) {
    std::filesystem::create_directory(dir_ / "sub");
    std::filesystem::create_symlink("sub", dir_ / "relative");
    std::filesystem::create_symlink(dir_ / "sub", dir_ / "absolute");
    std::filesystem::create_symlink("relative", dir_ / "chain");
    EXPECT_EQ(Fill("relative").mode, "lrwxrwxrwx");
    EXPECT_EQ(Fill("relative").link_to, "sub");
    EXPECT_TRUE(Fill("relative").is_link && Fill("relative").is_dir);
    EXPECT_EQ(Fill("absolute").link_to, dir_ / "sub");
    EXPECT_TRUE(Fill("absolute").is_dir);
    EXPECT_FALSE(Fill("chain").is_dir);
    EXPECT_EQ(log_.Texts(ELevel::eWarn).size(), 0U) << log_.Dump();
}

TEST_F(LinDirEnumEntry, DanglingLinkIsToldWithAWarning) {
    std::filesystem::create_symlink("nowhere", dir_ / "link");
    const info_t info = Fill("link");
    EXPECT_EQ(info.link_to, "nowhere");
    EXPECT_FALSE(info.is_dir);
    EXPECT_EQ(log_.Texts(ELevel::eWarn), std::vector<std::string>{"Unable to get lstat for item [" + dir_ / "nowhere" +
                                                                  "]. No such file or directory"});
}

TEST_F(LinDirEnumEntry, LinkThatHasGoneIsToldWithoutTarget) {
    const info_t info = FillMode(S_IFLNK);
    EXPECT_EQ(info.link_to, "");
    EXPECT_EQ(info.mode, "lrwxrwxrwx");
    EXPECT_EQ(log_.Texts(ELevel::eWarn), std::vector<std::string>{"Unable to call readlink for item [" + dir_ / "name" +
                                                                  "]. No such file or directory"});
}

TEST_F(LinDirEnumEntry, DirectoryIsAskedForItsSubDirectories) {
    std::filesystem::create_directory(dir_ / "sub");
    std::wstring asked;
    bool only = false;
    filler_.look = [&](const std::wstring& path, bool subDirectoriesOnly) {
        asked = path;
        only = subDirectoriesOnly;
        return false;
    };
    EXPECT_TRUE(Fill("sub").has_sub_dirs);
    const std::string expected = dir_ / "sub";
    EXPECT_EQ(asked, std::wstring(expected.begin(), expected.end()));
    EXPECT_TRUE(only);
}

TEST_F(LinDirEnumEntry, LookIntoADirectoryThatFailsIsAnAccessError) {
    std::filesystem::create_directory(dir_ / "sub");
    filler_.look = [](const std::wstring&, bool) -> bool {
        throw posix::errno_exc_t("Failed to open dir: %1", "x", EACCES);
    };
    const info_t info = Fill("sub");
    EXPECT_EQ(info.access_error, static_cast<std::uint64_t>(EACCES));
    EXPECT_FALSE(info.has_sub_dirs);
    EXPECT_EQ(log_.Texts(ELevel::eWarn),
              std::vector<std::string>{"Problem with Search. Failed to open dir: x: Permission denied"});
}

TEST_F(LinDirEnumEntry, LookThatIsNotSupportedIsNoAccessError) {
    std::filesystem::create_directory(dir_ / "sub");
    EXPECT_THAT(CatchError([&] { Fill("sub"); }),
                Throws("std::runtime_error", "tarn/lindir/lin_dir_enum:IsDirEmpty -- not supported on this platform"));
}

TEST(LinDirEnumPermissions, EveryModeFormatsByTheTable) {
    for (unsigned mode = 0; mode < 010000; ++mode) {
        std::string expected(9, '-');
        const char plain[] = "rwxrwxrwx";
        for (unsigned bit = 0; bit < 9; ++bit) {
            if ((mode & (0400U >> bit)) != 0) {
                expected[bit] = plain[bit];
            }
        }
        expected[2] = (mode & 04000) == 0 ? expected[2] : (mode & 0100) != 0 ? 's' : 'S';
        expected[5] = (mode & 02000) == 0 ? expected[5] : (mode & 0010) != 0 ? 's' : 'S';
        expected[8] = (mode & 01000) == 0 ? expected[8] : (mode & 0001) != 0 ? 't' : 'T';
        ASSERT_EQ(lin_dir_enum::formatPermissions(mode, false), expected) << std::oct << mode;
        ASSERT_EQ(lin_dir_enum::formatPermissions(mode | S_IFDIR, true), expected + "+");
    }
    EXPECT_EQ(lin_dir_enum::formatPermissions(04755, false), "rwsr-xr-x");
    EXPECT_EQ(lin_dir_enum::formatPermissions(01777, false), "rwxrwxrwt");
    EXPECT_EQ(lin_dir_enum::formatPermissions(02644, true), "rw-r-Sr--+");
}

TEST(LinDirEnumText, PathIsCutBehindItsLastSlash) {
    const auto cut = [](std::string path) {
        std::string name;
        lin_dir_enum::splitPathToDirAndName(path, name);
        return std::make_pair(path, name);
    };
    EXPECT_EQ(cut("/a/b.txt"), std::make_pair(std::string("/a/"), std::string("b.txt")));
    EXPECT_EQ(cut("/b"), std::make_pair(std::string("/"), std::string("b")));
    EXPECT_EQ(cut("a/b/"), std::make_pair(std::string("a/b/"), std::string()));
    EXPECT_EQ(cut("b"), std::make_pair(std::string("."), std::string("b")));
}

TEST(LinDirEnumText, OnlyUtf8BecomesWide) {
    EXPECT_EQ(lin_dir_enum::convertUtf8ToUnicode("a\xC3\xA4\xF0\x9F\x98\x80"), L"a\u00e4\U0001F600");
    for (const std::string text : {"\xFF", "\xC0\xAF", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_THAT(CatchError([&] { lin_dir_enum::convertUtf8ToUnicode(text); }),
                    Throws("exc::CRuntimeExc", "Unable to convert string to Unicode: " + text));
    }
}

TEST(LinDirEnumXml, DescriptionIsTheDocumentedOne) {
    info_t info;
    info.name = "b.txt";
    info.dir = "/a/";
    info.user_name = info.group_name = "root";
    info.mode = lin_dir_enum::formatPermissions(0644, false);
    info.is_reg = true;
    info.size = 4;
    info.mtime = 1700000000;
    const auto document = xml::TiXmlCreateDoc();
    xml::xml_holder_t element = lin_dir_enum::createRootElement(document);
    lin_dir_enum::createXmlContent(element, info);
    EXPECT_NE(tests::ReadFile("docs/formats.md").find("\n" + xml::TiXmlSerialize(*document) + "\n"), std::string::npos);
}

TEST(LinDirEnumXml, AttributesStandInTheirOrder) {
    info_t info;
    info.name = "n";
    info.dir = "/d/";
    info.link_to = "t";
    info.user_name = "u";
    info.group_name = "g";
    info.mode = "m";
    info.is_dir = true;
    info.has_sub_dirs = true;
    info.is_chr = info.is_blk = info.is_fifo = info.is_sock = true;
    info.size = 1;
    info.mtime = 2;
    info.uid = 3;
    info.gid = 4;
    const auto text = [](const info_t& entry) {
        const auto document = xml::TiXmlCreateDoc();
        xml::xml_holder_t element = lin_dir_enum::createRootElement(document);
        lin_dir_enum::createXmlContent(element, entry);
        return xml::TiXmlSerialize(*document);
    };
    const std::string begin =
        R"(<?xml version="1.0" encoding="UTF-8"?><lists file_name="n" file_dir="/d/" dir="1" link="0" is_reg="0" )"
        R"(link_to="t" has_sub_dirs="1" user_name="u" group_name="g" mode="m" size="1" mtime="2" uid="3" gid="4")";
    EXPECT_EQ(text(info), begin + "/>");
    info.access_error = 13;
    EXPECT_EQ(text(info), begin + R"( AccessError="13"/>)");
}

}  // namespace
}  // namespace tarn::lindir
