// The host backend over access-control lists that work: this program has its own `CLinuxAcl`, which takes the place of
// the library's refusing one.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linuxacl/linux_acl.h"
#include "mirrowen/posix/syscalls.h"
#include "tarn/hostfs/hostfs_operations.h"
#include "tests/support/logged.h"
#include "tests/support/temp_dir.h"

namespace {

struct call_t {
    std::string what;
    util::CPosixAclValue acl;
    mode_t mode;  ///< of the file at that moment
};

std::vector<call_t> g_calls;

void Note(const std::string& what, const std::string& path, const util::CPosixAclValue& acl) {
    struct stat info = {};
    stat(path.c_str(), &info);
    g_calls.push_back({what + path, acl, info.st_mode & 07777U});
}

const util::CPosixAclValue kList{true, "user::rw-", "user::r--"};

}  // namespace

util::CPosixAclValue linuxacl::CLinuxAcl::GetAclForFile(const std::string& path) {
    Note("get ", path, {});
    return kList;
}

void linuxacl::CLinuxAcl::SetAclForFile(const std::string& path, const util::CPosixAclValue& acl) {
    Note("set ", path, acl);
}

bool linuxacl::CLinuxAcl::IsExtendedAcl(const std::string& path) {
    Note("ask ", path, {});
    return true;
}

namespace {

using tarn::EFileInfoType;

class HostfsAclSeamTest : public testing::Test {
  protected:
    HostfsAclSeamTest() {
        std::ofstream(path_) << "content";
        std::filesystem::create_symlink("file", link_);
        g_calls.clear();
    }

    tests::temp_dir_t dir_;
    std::string path_ = dir_ / "file";
    std::string link_ = dir_ / "link";
    tarn::hostfs::hostfs_operations_t host_;
};

TEST_F(HostfsAclSeamTest, TheListAloneComesWithUnsetAttributes) {
    util::CFileInfo expected;
    expected.posixAcl = kList;
    EXPECT_EQ(host_.GetFileMetadata(path_, EFileInfoType::eFileInfoAclOnly), expected);
    EXPECT_EQ(g_calls.size(), 1U);
}

TEST_F(HostfsAclSeamTest, BasicAttributesOfAFileComeWithItsList) {
    const util::CFileInfo info = host_.GetFileMetadata(path_, EFileInfoType::eFileInfoBasic);
    EXPECT_EQ(info.size, 7U);
    EXPECT_EQ(info.posixAcl, kList);
    EXPECT_EQ(g_calls.size(), 1U);
}

TEST_F(HostfsAclSeamTest, ALinksListComesOnlyInFull) {
    EXPECT_TRUE(host_.GetFileMetadata(link_, EFileInfoType::eFileInfoBasic).posixAcl.IsEmpty());
    EXPECT_EQ(g_calls.size(), 0U);
    const util::CFileInfo full = host_.GetFileMetadata(link_, EFileInfoType::eFileInfoFull);
    EXPECT_TRUE(full.isSymlink());
    EXPECT_EQ(full.posixAcl, kList);
    EXPECT_EQ(g_calls.size(), 1U);
}

TEST_F(HostfsAclSeamTest, InFullAFilesListIsReadAgain) {
    EXPECT_EQ(host_.GetFileMetadata(path_, EFileInfoType::eFileInfoFull).posixAcl, kList);
    EXPECT_EQ(g_calls.size(), 2U);
}

TEST_F(HostfsAclSeamTest, TheListIsSetAfterTheAttributesAndNothingIsLogged) {
    util::CFileInfo info = host_.GetFileMetadata(path_, EFileInfoType::eFileInfoBasic);
    g_calls.clear();
    info.mode = 0640;
    tests::log_capture_t log;
    host_.SetFileMetadata(info, path_);
    ASSERT_EQ(g_calls.size(), 1U);
    EXPECT_EQ(g_calls[0].what, "set " + path_);
    EXPECT_EQ(g_calls[0].acl, kList);
    EXPECT_EQ(g_calls[0].mode, 0640U) << "the attributes come first";
    EXPECT_TRUE(log.Lines().empty());
}

// A file system that takes NFSv4 lists: they are noted like the other calls.
class nfs_lists_t {
  public:
    nfs_lists_t() : table_(posix::real_syscalls()), inForce_(table_) {
        table_.lsetxattr = [](const char* path, const char* name, const void* value, std::size_t size, int) {
            Note("nfs " + std::string(static_cast<const char*>(value), size) + " ", path, {});
            return std::string_view(name) == "system.nfs4_acl" ? 0 : -1;
        };
        table_.fsetxattr = [](int, const char*, const void*, std::size_t, int) { return 0; };
    }

  private:
    posix::syscalls_t table_;
    posix::scoped_syscalls_t inForce_;
};

TEST_F(HostfsAclSeamTest, AttributesComeFirstThenTheNfsListThenTheOtherOne) {
    util::CFileInfo info = host_.GetFileMetadata(path_, EFileInfoType::eFileInfoBasic);
    g_calls.clear();
    info.mode = 0640;
    info.nfs4Acl = {'a', 'b'};
    tests::log_capture_t log;
    const nfs_lists_t nfs;
    host_.SetFileMetadata(info, path_);
    ASSERT_EQ(g_calls.size(), 2U);
    EXPECT_EQ(g_calls[0].what, "nfs ab " + path_);
    EXPECT_EQ(g_calls[0].mode, 0640U) << "the attributes come first";
    EXPECT_EQ(g_calls[1].what, "set " + path_);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(HostfsAclSeamTest, AnNfsListThatFailsEndsTheWorkBeforeTheOtherList) {
    util::CFileInfo info = host_.GetFileMetadata(path_, EFileInfoType::eFileInfoBasic);
    g_calls.clear();
    info.mode = 0600;
    info.nfs4Acl = {1, 2, 3};
    tests::log_capture_t log;
    host_.SetFileMetadata(info, path_);
    EXPECT_EQ(g_calls.size(), 0U);
    struct stat after = {};
    ASSERT_EQ(stat(path_.c_str(), &after), 0);
    EXPECT_EQ(after.st_mode & 07777U, 0600U) << "the attributes were applied";
    EXPECT_TRUE(Logged(log, logging::ELevel::eWarn, "Failed to set metadata for file [" + path_ + "]."));
}

}  // namespace
