#include "mirrowen/util/fs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string_view>

#include "tests/support/caught_error.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/temp_dir.h"

namespace {

namespace sfs = std::filesystem;
using posix::syscalls_t;
using tests::CatchError;
using tests::ThrowsText;

class Fs : public testing::Test {
  protected:
    const tests::temp_dir_t dir_;
    const std::string path_ = dir_ / "name";
};

TEST_F(Fs, ExistenceDoesNotFollowLinks) {
    EXPECT_FALSE(util::fs_file_exists(path_));
    EXPECT_FALSE(util::fs_file_exists(path_ + "/below"));
    EXPECT_TRUE(util::fs_file_exists(dir_.path()));
    sfs::create_symlink("nowhere", path_);
    EXPECT_TRUE(util::fs_file_exists(path_)) << "a dangling link is there";
    tests::WriteFile(dir_ / "file", "");
    EXPECT_TRUE(util::fs_file_exists(dir_ / "file"));
    EXPECT_FALSE(util::fs_file_exists(dir_ / "file/below"));
}

TEST_F(Fs, UnknownExistenceIsAFailure) {
    tests::faulty_syscalls_t calls;
    calls.Fail<&syscalls_t::lstat>(EACCES);
    EXPECT_THAT(CatchError([&] { util::fs_file_exists(path_); }),
                tests::Throws("posix::errno_exc_t", "Failed to examine [" + path_ + "]: Permission denied"));
}

TEST_F(Fs, DirectoryIsFoundThroughALink) {
    EXPECT_TRUE(util::fs_directory_exists(dir_.path()));
    EXPECT_FALSE(util::fs_directory_exists(path_));
    tests::WriteFile(dir_ / "file", "");
    EXPECT_FALSE(util::fs_directory_exists(dir_ / "file"));
    sfs::create_symlink(dir_.path(), path_);
    EXPECT_TRUE(util::fs_directory_exists(path_));
    sfs::create_symlink("nowhere", dir_ / "dangling");
    EXPECT_FALSE(util::fs_directory_exists(dir_ / "dangling"));
}

TEST_F(Fs, DeleteRemovesFilesLinksAndEmptyDirectories) {
    tests::WriteFile(dir_ / "target", "kept");
    sfs::create_symlink("target", dir_ / "link");
    sfs::create_directory(dir_ / "empty");
    tests::WriteFile(path_, "");
    for (const char* const name : {"link", "empty", "name"}) {
        util::fs_file_delete(dir_ / name);
        EXPECT_FALSE(util::fs_file_exists(dir_ / name)) << name;
    }
    EXPECT_EQ(tests::ReadFile(dir_ / "target"), "kept");
}

TEST_F(Fs, DeleteIsNotRecursive) {
    sfs::create_directory(path_);
    tests::WriteFile(path_ + "/inside", "kept");
    EXPECT_THAT(CatchError([&] { util::fs_file_delete(path_); }),
                ThrowsText("Failed to delete file [" + path_ + "]: Directory not empty"));
    EXPECT_EQ(tests::ReadFile(path_ + "/inside"), "kept");
}

TEST_F(Fs, DeleteOfNothingFails) {
    EXPECT_THAT(
        CatchError([&] { util::fs_file_delete(path_); }),
        tests::Throws("posix::errno_exc_t", "Failed to delete file [" + path_ + "]: No such file or directory"));
}

TEST_F(Fs, RefusedDeleteOfAFileKeepsItsReason) {
    tests::WriteFile(path_, "");
    tests::faulty_syscalls_t calls;
    calls.Fail<&syscalls_t::unlinkat>(EPERM);
    EXPECT_THAT(CatchError([&] { util::fs_file_delete(path_); }),
                ThrowsText("Failed to delete file [" + path_ + "]: Operation not permitted"));
    EXPECT_TRUE(util::fs_file_exists(path_));
}

TEST_F(Fs, SizeFollowsLinks) {
    tests::WriteFile(path_, "12345");
    sfs::create_symlink(path_, dir_ / "link");
    EXPECT_EQ(util::fs_file_size(path_), 5U);
    EXPECT_EQ(util::fs_file_size(dir_ / "link"), 5U);
    EXPECT_THAT(CatchError([&] { util::fs_file_size(dir_ / "none"); }),
                ThrowsText("Failed to get size of file [" + (dir_ / "none") + "]: No such file or directory"));
}

TEST_F(Fs, DirectoryThatIsThereIsFine) {
    util::fs_make_directory(path_);
    EXPECT_TRUE(sfs::is_directory(path_));
    EXPECT_NO_THROW(util::fs_make_directory(path_));
}

TEST_F(Fs, DirectoryNeedsItsParentAndAFreeName) {
    const std::string below = path_ + "/below";
    EXPECT_THAT(CatchError([&] { util::fs_make_directory(below); }),
                ThrowsText("Failed to create directory [" + below + "]: No such file or directory"));
    tests::WriteFile(path_, "");
    EXPECT_THAT(CatchError([&] { util::fs_make_directory(path_); }),
                ThrowsText("Failed to create directory [" + path_ + "]: File exists"));
}

TEST_F(Fs, RenameReplacesAFile) {
    tests::WriteFile(path_, "new");
    tests::WriteFile(dir_ / "other", "old");
    util::CPathUtils::rename(path_, dir_ / "other");
    EXPECT_EQ(tests::ReadFile(dir_ / "other"), "new");
    EXPECT_FALSE(util::fs_file_exists(path_));
    EXPECT_THAT(CatchError([&] { util::CPathUtils::rename(path_, dir_ / "other"); }),
                ThrowsText("Failed to rename [" + path_ + "]: No such file or directory"));
}

TEST(FsPath, MergeLeavesExactlyOneSlash) {
    const char* const cases[][3] = {
        {"a", "b", "a/b"}, {"a/", "/b", "a/b"}, {"a//", "//b/", "a/b/"}, {"/", "b", "/b"}, {"/", "", "/"},
        {"a//", "", "a"},  {"a", "/", "a"},     {"/a/", "", "/a"},       {"", "b", "b"},   {"", "/b", "/b"},
        {"", "", ""},      {"//", "//", "/"},
    };
    for (const auto& [directory, name, merged] : cases) {
        EXPECT_EQ(util::fs_merge_path(directory, name), merged) << directory << " + " << name;
    }
}

TEST(FsPath, MergeWithTheSlashOfTheHostTakesABackslashForACharacter) {
    EXPECT_EQ(util::fs_merge_path_slash_sense("a\\", "\\b"), "a\\/\\b");
    EXPECT_EQ(util::fs_merge_path_slash_sense("/a/", "/b"), "/a/b");
    EXPECT_EQ(util::fs_merge_path_slash_sense("/a//", ""), "/a");
    EXPECT_EQ(util::fs_merge_path_slash_sense("/", ""), "/");
}

TEST(FsPath, SplitDropsEmptyComponents) {
    using testing::ElementsAre;
    using testing::IsEmpty;
    EXPECT_THAT(util::fs_split_path(L"/a//b/c/"), ElementsAre(L"a", L"b", L"c"));
    EXPECT_THAT(util::fs_split_path(L"a\\b"), ElementsAre(L"a\\b"));
    EXPECT_THAT(util::fs_split_path(L"///"), IsEmpty());
    EXPECT_THAT(util::fs_split_path(L""), IsEmpty());
}

TEST(FsPath, LastDelimiter) {
    EXPECT_EQ(util::fs_find_last_unix_path_delim(L"/a/b"), 2U);
    EXPECT_EQ(util::fs_find_last_unix_path_delim(L"/"), 0U);
    EXPECT_EQ(util::fs_find_last_unix_path_delim(L"ab"), std::wstring::npos);
}

TEST(FsPath, HostIsCaseSensitive) {
    EXPECT_TRUE(util::g_fs_hosted_os_case_sensitive_paths);
}

// A host with a share at /share and a directory of another kind for each magic number.
long type_of_test_host(const char* path) {
    std::string_view text(path);
    while (text.size() > 1 && text.ends_with('/')) {
        text.remove_suffix(1);
    }
    if (text == "/share" || text == "/share/old") {
        return text == "/share" ? static_cast<long>(0xFE534D42) : 0x517B;
    }
    if (text == "/cifs") {
        return static_cast<int>(0xFF534D42);  // as a kernel with a signed 32-bit field gives it
    }
    if (text == "/" || text == ".") {
        return 0xEF53;
    }
    errno = text.starts_with("/file/") ? ENOTDIR : text == "/broken" ? EIO : ENOENT;
    return -1;
}

TEST(FsSmb, NearestExistingAncestorDecides) {
    const util::scoped_fs_type_t scope(type_of_test_host);
    for (const char* const path : {"/share", "/share/", "/share//new/file", "/share/old/file", "/cifs", "/cifs/a/b"}) {
        EXPECT_TRUE(util::fs_is_smb_path(path)) << path;
    }
    for (const char* const path : {"/", "/local/file", "/sharex", "relative", "a/b/c", "", "/file/x", "//"}) {
        EXPECT_FALSE(util::fs_is_smb_path(path)) << path;
    }
}

TEST(FsSmb, UnreadableFileSystemIsAFailure) {
    const util::scoped_fs_type_t scope(type_of_test_host);
    EXPECT_THAT(CatchError([] { util::fs_is_smb_path("/broken"); }),
                tests::Throws("posix::errno_exc_t", "Failed to find the file system of [/broken]: Input/output error"));
}

TEST(FsSmb, AsksTheRealFileSystem) {
    EXPECT_FALSE(util::fs_is_smb_path("/proc/self/no/such/entry"));
}

}  // namespace
