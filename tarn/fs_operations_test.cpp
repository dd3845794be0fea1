#include "tarn/fs_operations.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/not_impl_exc.h"
#include "tarn/file_async_read_handle.h"
#include "tests/support/caught_error.h"
#include "tests/support/logged.h"
#include "tests/support/mock_fs_operations.h"
#include "tests/support/mock_streams.h"
#include "tests/support/virtual_slot.h"

namespace tarn {
namespace {

using tests::VirtualSlot;
using u64 = std::uint64_t;
using text_t = const std::string&;
using rstream_t = std::shared_ptr<file_rstream_t>;
using wstream_t = std::shared_ptr<file_wstream_t>;
using device_t = std::shared_ptr<io::file::random_access_dev_t>;
using fs_t = fs_operations_t;
using ext_t = backup_media_t::extent_operations_t;
using stg_t = backup_media_t::stg_operations_t;

// The contract as types: a changed signature does not compile.
static_assert(std::is_same_v<decltype(&fs_t::OpenFile4Read), rstream_t (fs_t::*)(text_t)>);
static_assert(std::is_same_v<decltype(&fs_t::OpenFile4ReadWithoutWriteShare), rstream_t (fs_t::*)(text_t)>);
static_assert(std::is_same_v<decltype(&fs_t::OpenDisk4Read), rstream_t (fs_t::*)(text_t)>);
static_assert(std::is_same_v<decltype(&fs_t::OpenFile4Write), wstream_t (fs_t::*)(text_t, u64)>);
static_assert(std::is_same_v<decltype(&fs_t::CreateNewFile), wstream_t (fs_t::*)(text_t, u64, bool)>);
static_assert(std::is_same_v<decltype(&fs_t::CreateDir), void (fs_t::*)(text_t)>);
static_assert(std::is_same_v<decltype(&fs_t::IsObjectExist), bool (fs_t::*)(text_t)>);
static_assert(std::is_same_v<decltype(&fs_t::DeleteFile), void (fs_t::*)(text_t)>);
static_assert(std::is_same_v<decltype(&fs_t::IsRenameSupported), bool (fs_t::*)() const>);
static_assert(std::is_same_v<decltype(&fs_t::RenameFile), void (fs_t::*)(text_t, text_t)>);
static_assert(std::is_same_v<decltype(&fs_t::GetBackupMedia), std::shared_ptr<backup_media_t> (fs_t::*)()>);
static_assert(std::is_same_v<decltype(&fs_t::GetFileMetadata), util::CFileInfo (fs_t::*)(text_t, EFileInfoType)>);
static_assert(std::is_same_v<decltype(&fs_t::SetFileMetadata), void (fs_t::*)(const util::CFileInfo&, text_t)>);
static_assert(std::is_same_v<decltype(&fs_t::TryGetSymLinkInfo), bool (fs_t::*)(text_t, CSymlinkData&)>);
static_assert(std::is_same_v<decltype(&fs_t::CreateSymLink), void (fs_t::*)(text_t, const CSymlinkData&)>);
static_assert(std::is_same_v<decltype(&fs_t::RecognizeFsPath), std::shared_ptr<fs_t> (*)(text_t, int)>);

static_assert(std::is_same_v<decltype(&file_rstream_t::GetPath), std::string (file_rstream_t::*)()>);
static_assert(std::is_same_v<decltype(&file_rstream_t::GetFileSize), u64 (file_rstream_t::*)()>);
static_assert(std::is_same_v<decltype(&file_rstream_t::SeekTo), void (file_rstream_t::*)(u64)>);
static_assert(std::is_same_v<decltype(&file_rstream_t::ReadExc), u64 (file_rstream_t::*)(void*, u64)>);
static_assert(std::is_same_v<decltype(&file_rstream_t::FinishRead), void (file_rstream_t::*)()>);
static_assert(std::is_same_v<decltype(&file_wstream_t::SeekTo), void (file_wstream_t::*)(u64)>);
static_assert(std::is_same_v<decltype(&file_wstream_t::WriteExc), u64 (file_wstream_t::*)(const void*, u64)>);
static_assert(std::is_same_v<decltype(&file_wstream_t::WriteZeroes), u64 (file_wstream_t::*)(u64)>);
static_assert(std::is_same_v<decltype(&file_wstream_t::GetPath), std::string (file_wstream_t::*)()>);
static_assert(std::is_same_v<decltype(&file_wstream_t::Flush), void (file_wstream_t::*)()>);
static_assert(std::is_same_v<decltype(&file_wstream_t::Close),
                             void (file_wstream_t::*)(std::shared_ptr<synch::completion_port_t>)>);
static_assert(std::is_same_v<decltype(&IFileAsyncReadHandle::GetPath), std::string (IFileAsyncReadHandle::*)()>);
static_assert(std::is_same_v<decltype(&IFileAsyncReadHandle::GetReadAlignment), u64 (IFileAsyncReadHandle::*)() const>);
static_assert(std::is_same_v<decltype(&IFileAsyncReadHandle::WaitAllRequests), void (IFileAsyncReadHandle::*)() const>);
static_assert(std::is_same_v<decltype(&IFileAsyncReadHandle::ReadAsync),
                             void (IFileAsyncReadHandle::*)(void*, u64, u64, std::shared_ptr<io::io_async_task_t>)>);
static_assert(
    std::is_same_v<decltype(&backup_media_t::GetExtentOperations), std::shared_ptr<ext_t> (backup_media_t::*)()>);
static_assert(
    std::is_same_v<decltype(&backup_media_t::GetStgOperations), std::shared_ptr<stg_t> (backup_media_t::*)()>);
static_assert(std::is_same_v<decltype(&ext_t::ExtCreate), wstream_t (ext_t::*)(text_t, u64)>);
static_assert(std::is_same_v<decltype(&ext_t::ExtSize), u64 (ext_t::*)(text_t)>);
static_assert(std::is_same_v<decltype(&ext_t::ExtOpen4RndRwSafe), device_t (ext_t::*)(u64, text_t)>);
static_assert(std::is_same_v<decltype(&ext_t::ExtOpen4RndRead), device_t (ext_t::*)(text_t)>);
static_assert(std::is_same_v<decltype(&ext_t::ResizeExtent), void (ext_t::*)(text_t, u64)>);
static_assert(std::is_same_v<decltype(&stg_t::StgOpen4Rw), device_t (stg_t::*)(u64, text_t)>);
static_assert(std::is_same_v<decltype(&stg_t::StgOpen4Read), device_t (stg_t::*)(text_t)>);

// Interfaces without data, destroyed through their own type.
template <class Interface>
constexpr bool kPureInterface = std::is_abstract_v<Interface>&& std::has_virtual_destructor_v<Interface> &&
                                sizeof(Interface) == sizeof(void*);
static_assert(kPureInterface<fs_t>);
static_assert(kPureInterface<file_rstream_t>);
static_assert(kPureInterface<file_wstream_t>);
static_assert(kPureInterface<IFileAsyncReadHandle>);
static_assert(kPureInterface<backup_media_t>);
static_assert(kPureInterface<ext_t>);
static_assert(kPureInterface<stg_t>);

static_assert(sizeof(EFileInfoType) == 1);
static_assert(static_cast<int>(EFileInfoType::eFileInfoBasic) == 0);
static_assert(static_cast<int>(EFileInfoType::eFileInfoAclOnly) == 1);
static_assert(static_cast<int>(EFileInfoType::eFileInfoFull) == 2);

TEST(FsOperations, VirtualFunctionsStandInTheirOrder) {
    std::size_t slot = 0;
    EXPECT_EQ(VirtualSlot(&fs_t::OpenFile4Read), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::OpenFile4ReadWithoutWriteShare), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::OpenDisk4Read), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::OpenFile4Write), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::CreateNewFile), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::CreateDir), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::IsObjectExist), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::DeleteFile), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::IsRenameSupported), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::RenameFile), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::GetBackupMedia), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::GetFileMetadata), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::SetFileMetadata), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::TryGetSymLinkInfo), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::CreateSymLink), ++slot);
    EXPECT_EQ(VirtualSlot(&fs_t::EnumerateDirectoryContent), ++slot);
    EXPECT_EQ(slot, 16U);
}

TEST(FileRstream, VirtualFunctionsStandInTheirOrder) {
    EXPECT_EQ(VirtualSlot(&file_rstream_t::GetPath), 1U);
    EXPECT_EQ(VirtualSlot(&file_rstream_t::GetFileSize), 2U);
    EXPECT_EQ(VirtualSlot(&file_rstream_t::SeekTo), 3U);
    EXPECT_EQ(VirtualSlot(&file_rstream_t::ReadExc), 4U);
    EXPECT_EQ(VirtualSlot(&file_rstream_t::FinishRead), 5U);
}

TEST(FileWstream, VirtualFunctionsStandInTheirOrder) {
    EXPECT_EQ(VirtualSlot(&file_wstream_t::SeekTo), 1U);
    EXPECT_EQ(VirtualSlot(&file_wstream_t::WriteExc), 2U);
    EXPECT_EQ(VirtualSlot(&file_wstream_t::WriteZeroes), 3U);
    EXPECT_EQ(VirtualSlot(&file_wstream_t::GetPath), 4U);
    EXPECT_EQ(VirtualSlot(&file_wstream_t::Flush), 5U);
    EXPECT_EQ(VirtualSlot(&file_wstream_t::Close), 6U);
}

TEST(FileAsyncReadHandle, VirtualFunctionsStandInTheirOrder) {
    EXPECT_EQ(VirtualSlot(&IFileAsyncReadHandle::GetPath), 1U);
    EXPECT_EQ(VirtualSlot(&IFileAsyncReadHandle::GetReadAlignment), 2U);
    EXPECT_EQ(VirtualSlot(&IFileAsyncReadHandle::WaitAllRequests), 3U);
    EXPECT_EQ(VirtualSlot(&IFileAsyncReadHandle::ReadAsync), 4U);
}

TEST(BackupMedia, VirtualFunctionsStandInTheirOrder) {
    EXPECT_EQ(VirtualSlot(&backup_media_t::GetExtentOperations), 1U);
    EXPECT_EQ(VirtualSlot(&backup_media_t::GetStgOperations), 2U);
    EXPECT_EQ(VirtualSlot(&ext_t::ExtCreate), 1U);
    EXPECT_EQ(VirtualSlot(&ext_t::ExtSize), 2U);
    EXPECT_EQ(VirtualSlot(&ext_t::ExtOpen4RndRwSafe), 3U);
    EXPECT_EQ(VirtualSlot(&ext_t::ExtOpen4RndRead), 4U);
    EXPECT_EQ(VirtualSlot(&ext_t::ResizeExtent), 5U);
    EXPECT_EQ(VirtualSlot(&stg_t::StgOpen4Rw), 1U);
    EXPECT_EQ(VirtualSlot(&stg_t::StgOpen4Read), 2U);
}

TEST(FsOperations, ListingIsRefusedInTheNameOfTheBaseClassAndTraced) {
    const tests::log_capture_t log;
    tests::mock_fs_operations_t operations;
    const auto caught = tests::CatchError([&] { operations.EnumerateDirectoryContent("/any"); });
    EXPECT_EQ(caught.type, "exc::CNotImplExc");
    EXPECT_EQ(caught.message, "fs_operations_t::EnumerateDirectoryContent");
    EXPECT_TRUE(tests::Logged(log, logging::ELevel::eTrace, "EnumerateDirectoryContent"));
}

TEST(FsOperations, StreamsAndBackendsAreDestroyedThroughTheirInterfaces) {
    bool gone = false;
    struct probe_t : tests::mock_file_wstream_t {
        explicit probe_t(bool& flag) : gone(flag) {}
        ~probe_t() override { gone = true; }
        bool& gone;
    };
    std::unique_ptr<file_wstream_t> stream = std::make_unique<probe_t>(gone);
    stream.reset();
    EXPECT_TRUE(gone);
}

TEST(VirtualSlot, AnOrdinaryFunctionHasNone) {
    EXPECT_EQ(VirtualSlot(&CSymlinkData::IsValid), 0U);
}

}  // namespace
}  // namespace tarn
