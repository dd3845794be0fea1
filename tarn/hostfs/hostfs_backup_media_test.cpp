#include "tarn/hostfs/hostfs_backup_media.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/system/system_error.hpp>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/str.h"
#include "tarn/hostfs/hostfs_extent_operations.h"
#include "tarn/hostfs/hostfs_file_wstream.h"
#include "tarn/hostfs/hostfs_stg_operations.h"
#include "tests/support/caught.h"
#include "tests/support/logged.h"
#include "tests/support/syscall_script.h"
#include "tests/support/temp_dir.h"

namespace {

using logging::ELevel;
using tarn::hostfs::hostfs_backup_media_t;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tests::Catch;
using tests::Logged;

class HostfsBackupMediaTest : public testing::Test {
  protected:
    void Put(const std::string& content) const { std::ofstream(path_, std::ios::binary) << content; }
    std::string Get() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // The texts of a resize: what it says before and after, and when it fails.
    std::string Sizes(std::uint64_t from, std::uint64_t to) const {
        return ". Current size: [" + util::str_fsize(from) + "]. New size: [" + util::str_fsize(to) + "].";
    }

    tests::temp_dir_t dir_;
    std::string path_ = dir_ / "extent";
    hostfs_backup_media_t media_;
    std::shared_ptr<tarn::backup_media_t::extent_operations_t> extents_ = media_.GetExtentOperations();
    std::shared_ptr<tarn::backup_media_t::stg_operations_t> storages_ = media_.GetStgOperations();
};

TEST_F(HostfsBackupMediaTest, TheSameOperationsAreHandedOutAtEveryCall) {
    EXPECT_EQ(media_.GetExtentOperations(), extents_);
    EXPECT_EQ(media_.GetStgOperations(), storages_);
    EXPECT_NE(dynamic_cast<hostfs_backup_media_t::extent_operations_t*>(extents_.get()), nullptr);
    EXPECT_NE(dynamic_cast<hostfs_backup_media_t::stg_operations_t*>(storages_.get()), nullptr);
    EXPECT_EQ(sizeof(hostfs_backup_media_t::extent_operations_t), sizeof(tarn::backup_media_t::extent_operations_t));
    EXPECT_EQ(sizeof(hostfs_backup_media_t::stg_operations_t), sizeof(tarn::backup_media_t::stg_operations_t));
}

TEST_F(HostfsBackupMediaTest, CreatingAnExtentReplacesAFileAndKeepsZeroRunsSparse) {
    Put("old content that is longer");
    const auto stream = extents_->ExtCreate(path_, 20);
    EXPECT_NE(dynamic_cast<tarn::hostfs::hostfs_file_wstream_t*>(stream.get()), nullptr);
    EXPECT_EQ(Get(), std::string(20, '\0'));
    tests::syscall_script_t calls;
    stream->WriteZeroes(19);
    EXPECT_TRUE(calls.writeCounts.empty());
}

TEST_F(HostfsBackupMediaTest, TheSizeOfAnExtentIsItsFiles) {
    Put("0123456789");
    EXPECT_EQ(extents_->ExtSize(path_), 10U);
    EXPECT_TRUE(Catch([&] { extents_->ExtSize(path_ + "2"); }).Is<posix::errno_exc_t>());
}

TEST_F(HostfsBackupMediaTest, ReadingOpensAnExistingFileOnly) {
    Put("0123456789");
    for (const auto& dev : {storages_->StgOpen4Read(path_), extents_->ExtOpen4RndRead(path_)}) {
        std::string text(4, '?');
        EXPECT_EQ(dev->GetSize(), 10U);
        EXPECT_EQ(dev->ReadAt(3, text.data(), 4), 4U);
        EXPECT_EQ(text, "3456");
        Catch([&] { dev->WriteAt(0, "x", 1); });
    }
    Catch([&] { storages_->StgOpen4Read(path_ + "2"); });
    Catch([&] { extents_->ExtOpen4RndRead(path_ + "2"); });
    EXPECT_FALSE(std::filesystem::exists(path_ + "2"));
    EXPECT_EQ(Get(), "0123456789");
}

TEST_F(HostfsBackupMediaTest, ReadingAndWritingKeepsAFileAndMakesAMissingOne) {
    Put("0123456789");
    storages_->StgOpen4Rw(0, path_)->WriteAt(2, "AB", 2);
    EXPECT_EQ(Get(), "01AB456789");
    extents_->ExtOpen4RndRwSafe(1000, path_)->WriteAt(10, "CD", 2);
    EXPECT_EQ(Get(), "01AB456789CD") << "the expected size reserves space and changes no length";
    std::filesystem::remove(path_);
    EXPECT_EQ(extents_->ExtOpen4RndRwSafe(0, path_)->GetSize(), 0U);
    EXPECT_TRUE(std::filesystem::exists(path_));
}

TEST_F(HostfsBackupMediaTest, ResizingToTheSameSizeDoesNotTouchTheFile) {
    Put("0123456789");
    std::filesystem::permissions(path_, std::filesystem::perms::none);
    struct stat before = {};
    struct stat after = {};
    ASSERT_EQ(stat(path_.c_str(), &before), 0);
    tests::log_capture_t log;
    tests::syscall_script_t calls;
    extents_->ResizeExtent(path_, 10);
    ASSERT_EQ(stat(path_.c_str(), &after), 0);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
    EXPECT_EQ(calls.open.TakeCount() + calls.ftruncate.TakeCount(), 0);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(HostfsBackupMediaTest, AResizedExtentReadsAsZeroesWhetherItGrowsOrShrinks) {
    for (const std::size_t size : {100U, 4U, 0U}) {
        Put("0123456789");
        tests::log_capture_t log;
        extents_->ResizeExtent(path_, size);
        EXPECT_EQ(Get(), std::string(size, '\0'));
        EXPECT_TRUE(Logged(log, ELevel::eTrace, "File [" + path_ + "] truncated" + Sizes(10, size)));
    }
}

TEST_F(HostfsBackupMediaTest, ALengthThatCannotBeSetIsASystemErrorUnderTheWholeStory) {
    Put("0123456789");
    tests::log_capture_t log;
    tests::syscall_script_t calls;
    calls.ftruncate.Fail(EFBIG);
    const auto caught = Catch([&] { extents_->ResizeExtent(path_, 100); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "Failed to truncate file [" + path_ + "]" + Sizes(10, 100));
    EXPECT_THAT(caught.causes, ElementsAre(StartsWith("set_size failed")));
    try {
        std::rethrow_exception(exc::RootCause(caught.error));
    } catch (const boost::system::system_error& error) {
        EXPECT_EQ(error.code(), boost::system::error_code(EFBIG, boost::system::system_category()));
    }
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Failed: Truncating file [" + path_ + "]" + Sizes(10, 100)));
    EXPECT_EQ(Get(), "") << "opening has emptied the file";
}

TEST_F(HostfsBackupMediaTest, ASizeThatNoFileCanHaveIsRefusedByTheSystem) {
    Put("0123456789");
    const std::uint64_t size = 1ULL << 63;
    const auto caught = Catch([&] { extents_->ResizeExtent(path_, size); });
    EXPECT_EQ(caught.message, "Failed to truncate file [" + path_ + "]" + Sizes(10, size));
    EXPECT_THAT(caught.causes, ElementsAre(StartsWith("set_size failed")));
}

TEST_F(HostfsBackupMediaTest, ResizingAMissingExtentIsReportedAsItIs) {
    const auto caught = Catch([&] { extents_->ResizeExtent(path_, 100); });
    EXPECT_TRUE(caught.Is<posix::errno_exc_t>()) << "there is no current size to speak of";
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(HostfsBackupMediaTest, ResizingADirectoryIsReportedWithBothSizes) {
    std::filesystem::create_directory(path_);
    const std::uint64_t current = extents_->ExtSize(path_);
    const auto caught = Catch([&] { extents_->ResizeExtent(path_, current + 1); });
    EXPECT_EQ(caught.message, "Failed to truncate file [" + path_ + "]" + Sizes(current, current + 1));
    EXPECT_EQ(caught.causes.size(), 1U);
}

}  // namespace
