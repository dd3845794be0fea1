#include "tarn/hostfs/hostfs_operations.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/fs.h"
#include "tarn/hostfs/hostfs_backup_media.h"
#include "tarn/hostfs/hostfs_file_rstream.h"
#include "tarn/hostfs/hostfs_file_wstream.h"
#include "tarn/hostfs/retryable_file_rstream.h"
#include "tarn/hostfs/retryable_hostfs_file_rstream.h"
#include "tests/support/caught.h"
#include "tests/support/fake_clock.h"
#include "tests/support/logged.h"
#include "tests/support/syscall_script.h"
#include "tests/support/temp_dir.h"

namespace {

using logging::ELevel;
using tarn::CSymlinkData;
using tarn::EFileInfoType;
using tarn::ESymlinkType;
using tarn::hostfs::hostfs_operations_t;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::Catch;
using tests::Logged;

static_assert(sizeof(hostfs_operations_t) == sizeof(tarn::fs_operations_t), "the backend has no state");
static_assert(!std::is_abstract_v<hostfs_operations_t>);

const char* const kNoAcl =
    "static util::CPosixAclValue linuxacl::CLinuxAcl::GetAclForFile(const string&) -- not implemented";
const char* const kNoAclWrite =
    "static void linuxacl::CLinuxAcl::SetAclForFile(const string&, const util::CPosixAclValue&) -- not implemented";

class HostfsOperationsTest : public testing::Test {
  protected:
    std::string Path(const std::string& name = "file") const { return dir_ / "" + name; }
    void Put(const std::string& content, const std::string& name = "file") const {
        std::ofstream(Path(name), std::ios::binary) << content;
    }
    std::string Get(const std::string& name = "file") const {
        std::ifstream in(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    tests::temp_dir_t dir_;
    hostfs_operations_t host_;
};

// Every path is on a network share while one of these lives.
class everything_is_smb_t {
    util::scoped_fs_type_t scope_{[](const char*) -> long { return 0xff534d42L; }};
};

template <class T>
T* As(const std::shared_ptr<tarn::file_rstream_t>& stream) {
    return dynamic_cast<T*>(stream.get());
}

TEST_F(HostfsOperationsTest, ALocalFileIsReadPlainly) {
    Put("content");
    EXPECT_NE(As<tarn::hostfs::hostfs_file_rstream_t>(host_.OpenFile4Read(Path())), nullptr);
    EXPECT_NE(As<tarn::hostfs::hostfs_file_rstream_t>(host_.OpenFile4ReadWithoutWriteShare(Path())), nullptr);
}

TEST_F(HostfsOperationsTest, AFileOnAShareIsReadWithThreeRetries) {
    Put("content");
    const everything_is_smb_t smb;
    const auto stream = host_.OpenFile4Read(Path());
    ASSERT_NE(As<tarn::hostfs::retryable_hostfs_file_rstream_t>(stream), nullptr);
    tests::fake_clock_t clock;
    tests::syscall_script_t calls;
    calls.read.Fail(EIO);
    char byte = 0;
    Catch([&] { stream->ReadExc(&byte, 1); });
    EXPECT_EQ(calls.read.TakeCount(), 4);
}

TEST_F(HostfsOperationsTest, AFileOnAShareIsReadExclusivelyWithThreeRetriesTenSecondsApart) {
    Put("content");
    const everything_is_smb_t smb;
    const auto stream = host_.OpenFile4ReadWithoutWriteShare(Path());
    ASSERT_NE(As<tarn::hostfs::retryable::CRetryableFileRstream>(stream), nullptr);
    tests::fake_clock_t clock;
    const auto start = clock.SteadyNow();
    tests::syscall_script_t calls;
    calls.read.Fail(EIO);
    char byte = 0;
    Catch([&] { stream->ReadExc(&byte, 1); });
    EXPECT_EQ(calls.read.TakeCount(), 4);
    EXPECT_EQ(clock.SteadyNow() - start, std::chrono::seconds(30));
}

TEST_F(HostfsOperationsTest, DisksAreRefused) {
    const auto caught = Catch([&] { host_.OpenDisk4Read("/dev/sda"); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.what, "HostFS doesn't support disk operations. Disk path: [/dev/sda].");
}

TEST_F(HostfsOperationsTest, OpeningForWriteResizesAndWritesEveryZero) {
    Put("0123456789");
    const auto stream = host_.OpenFile4Write(Path(), 6);
    EXPECT_NE(dynamic_cast<tarn::hostfs::hostfs_file_wstream_t*>(stream.get()), nullptr);
    stream->WriteZeroes(2);
    stream->Close(nullptr);
    EXPECT_EQ(Get(), std::string("\0\0", 2) + "2345");
}

TEST_F(HostfsOperationsTest, CreatingHonoursTheOverwriteFlag) {
    host_.CreateNewFile(Path(), 5, false)->Close(nullptr);
    EXPECT_EQ(Get().size(), 5U);
    EXPECT_TRUE(Catch([&] { host_.CreateNewFile(Path(), 7, false); }).Is<exc::CAlreadyExistsExc>());
    host_.CreateNewFile(Path(), 7, true)->Close(nullptr);
    EXPECT_EQ(Get().size(), 7U);
}

TEST_F(HostfsOperationsTest, DirectoriesAreMadeWhateverSlashesEndTheirPath) {
    host_.CreateDir(Path("one"));
    host_.CreateDir(Path("two///"));
    host_.CreateDir(Path("one"));
    EXPECT_TRUE(std::filesystem::is_directory(Path("one")));
    EXPECT_TRUE(std::filesystem::is_directory(Path("two")));
    EXPECT_TRUE(Catch([&] { host_.CreateDir(Path("three/inner")); }).Is<posix::errno_exc_t>());
}

TEST_F(HostfsOperationsTest, FilesDirectoriesAndDanglingLinksExist) {
    Put("content");
    std::filesystem::create_directory(Path("dir"));
    std::filesystem::create_symlink("nowhere", Path("link"));
    EXPECT_TRUE(host_.IsObjectExist(Path()));
    EXPECT_TRUE(host_.IsObjectExist(Path("dir")));
    EXPECT_TRUE(host_.IsObjectExist(Path("link")));
    EXPECT_FALSE(host_.IsObjectExist(Path("missing")));
    for (const char* const name : {"file", "dir", "link"}) {
        host_.DeleteFile(Path(name));
        EXPECT_FALSE(host_.IsObjectExist(Path(name)));
    }
    EXPECT_TRUE(Catch([&] { host_.DeleteFile(Path()); }).Is<posix::errno_exc_t>());
}

TEST_F(HostfsOperationsTest, RenamingIsSupportedAndReplaces) {
    EXPECT_TRUE(host_.IsRenameSupported());
    Put("content");
    Put("other", "new");
    host_.RenameFile(Path(), Path("new"));
    EXPECT_EQ(Get("new"), "content");
    EXPECT_FALSE(host_.IsObjectExist(Path()));
    EXPECT_TRUE(Catch([&] { host_.RenameFile(Path(), Path("new")); }).Is<posix::errno_exc_t>());
}

TEST_F(HostfsOperationsTest, BackupMediaAreNewAtEveryCall) {
    const auto media = host_.GetBackupMedia();
    EXPECT_NE(dynamic_cast<tarn::hostfs::hostfs_backup_media_t*>(media.get()), nullptr);
    EXPECT_NE(media, host_.GetBackupMedia());
}

TEST_F(HostfsOperationsTest, BasicAttributesComeWithoutAListAndAWarning) {
    Put("content");
    tests::log_capture_t log;
    const util::CFileInfo info = host_.GetFileMetadata(Path(), EFileInfoType::eFileInfoBasic);
    EXPECT_EQ(info.type, util::EFileType::eRegular);
    EXPECT_EQ(info.size, 7U);
    EXPECT_TRUE(info.posixAcl.IsEmpty());
    EXPECT_TRUE(Logged(log, ELevel::eWarn, "Failed to get Acl for file [" + Path() + "].", kNoAcl));
}

TEST_F(HostfsOperationsTest, ALinkIsDescribedItselfAndItsListIsNotAskedFor) {
    Put("content");
    std::filesystem::create_symlink("file", Path("link"));
    tests::log_capture_t log;
    const util::CFileInfo info = host_.GetFileMetadata(Path("link"), EFileInfoType::eFileInfoBasic);
    EXPECT_TRUE(info.isSymlink());
    EXPECT_TRUE(info.posixAcl.IsEmpty());
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(HostfsOperationsTest, AskedForAListTheReadersRefusalReachesTheCaller) {
    Put("content");
    std::filesystem::create_symlink("file", Path("link"));
    for (const auto type : {EFileInfoType::eFileInfoAclOnly, EFileInfoType::eFileInfoFull,
                            static_cast<EFileInfoType>(3), static_cast<EFileInfoType>(255)}) {
        for (const char* const name : {"file", "link"}) {
            const auto caught = Catch([&] { host_.GetFileMetadata(Path(name), type); });
            EXPECT_TRUE(caught.Is<std::runtime_error>());
            EXPECT_EQ(caught.what, kNoAcl);
        }
    }
}

TEST_F(HostfsOperationsTest, TheListAloneIsAskedForWithoutReadingAttributes) {
    EXPECT_EQ(Catch([&] { host_.GetFileMetadata(Path("missing"), EFileInfoType::eFileInfoAclOnly); }).what, kNoAcl);
}

TEST_F(HostfsOperationsTest, AttributesOfAMissingFileAreReportedWithThePath) {
    const auto caught = Catch([&] { host_.GetFileMetadata(Path(), EFileInfoType::eFileInfoBasic); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Failed to get file info for file  [" + Path() + "].");
    EXPECT_THAT(caught.causes, ElementsAre(HasSubstr("No such file or directory")));
}

TEST_F(HostfsOperationsTest, SettingAttributesDoesWhatItCanBeforeTheListIsRefused) {
    Put("content");
    util::CFileInfo info = host_.GetFileMetadata(Path(), EFileInfoType::eFileInfoBasic);
    info.mode = 0640;
    info.modificationTime = {1000000000, 0};
    tests::log_capture_t log;
    EXPECT_NO_THROW(host_.SetFileMetadata(info, Path()));
    struct stat after = {};
    ASSERT_EQ(stat(Path().c_str(), &after), 0);
    EXPECT_EQ(after.st_mode & 07777U, 0640U);
    EXPECT_EQ(after.st_mtim.tv_sec, 1000000000);
    EXPECT_TRUE(Logged(log, ELevel::eWarn, "Failed to set metadata for file [" + Path() + "].", kNoAclWrite));
}

TEST_F(HostfsOperationsTest, SettingAttributesOfAMissingFileIsOnlyLogged) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.mode = 0640;
    tests::log_capture_t log;
    EXPECT_NO_THROW(host_.SetFileMetadata(info, Path("missing")));
    EXPECT_TRUE(Logged(log, ELevel::eWarn, "Failed to set metadata for file [" + Path("missing") + "].",
                       "No such file or directory"));
}

TEST_F(HostfsOperationsTest, AnNfsListThatTheFileSystemDoesNotTakeIsOnlyLogged) {
    Put("content");
    util::CFileInfo info = host_.GetFileMetadata(Path(), EFileInfoType::eFileInfoBasic);
    info.nfs4Acl = {1, 2, 3};
    tests::log_capture_t log;
    EXPECT_NO_THROW(host_.SetFileMetadata(info, Path()));
    EXPECT_TRUE(
        Logged(log, ELevel::eWarn, "Failed to set metadata for file [" + Path() + "].", "Operation not supported"));
}

TEST_F(HostfsOperationsTest, ALinkIsReadIntoTheRecord) {
    host_.CreateSymLink(Path("link"), CSymlinkData(ESymlinkType::eFileLink, "file"));
    EXPECT_EQ(std::filesystem::read_symlink(Path("link")), "file");
    CSymlinkData out;
    EXPECT_TRUE(host_.TryGetSymLinkInfo(Path("link"), out));
    EXPECT_EQ(static_cast<std::string>(out), "file");
}

TEST_F(HostfsOperationsTest, WhatIsNoLinkLeavesTheRecordUntouched) {
    Put("content");
    for (const char* const name : {"file", "missing"}) {
        CSymlinkData out(ESymlinkType::eDirLink, "before");
        EXPECT_FALSE(host_.TryGetSymLinkInfo(Path(name), out));
        EXPECT_EQ(static_cast<std::string>(out), "before");
    }
}

TEST_F(HostfsOperationsTest, ListingIsNotImplemented) {
    EXPECT_TRUE(Catch([&] { host_.EnumerateDirectoryContent(dir_.path()); }).Is<exc::CNotImplExc>());
}

}  // namespace
