#include "tarn/relative/relative_fs_operations.h"

#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/caught_error.h"
#include "tests/support/mock_fs_operations.h"
#include "tests/support/mock_streams.h"
#include "tests/support/scoped_path_mapper.h"

namespace tarn::relative {
namespace {

using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using testing::StrictMock;
using testing::Throw;

class empty_media_t : public backup_media_t {
  public:
    std::shared_ptr<extent_operations_t> GetExtentOperations() override { return nullptr; }
    std::shared_ptr<stg_operations_t> GetStgOperations() override { return nullptr; }
};

/// Relative paths "rel/..." map to "/abs/rel/...", others to themselves. The strict backend below fails a test on any
/// call that it did not expect.
class RelativeFsOperations : public testing::Test {
  protected:
    const std::shared_ptr<StrictMock<tests::mock_fs_operations_t>> inner_ =
        std::make_shared<StrictMock<tests::mock_fs_operations_t>>();
    relative_fs_operations operations_{inner_};
    const std::shared_ptr<file_rstream_t> rstream_ = std::make_shared<tests::mock_file_rstream_t>();
    const std::shared_ptr<file_wstream_t> wstream_ = std::make_shared<tests::mock_file_wstream_t>();
    const tests::scoped_path_mapper_t mapper_{
        [](const std::string& path) { return path.starts_with("rel/") ? "/abs/" + path : path; }};
};

TEST_F(RelativeFsOperations, HoldsNothingButTheBackendBelow) {
    EXPECT_EQ(sizeof(relative_fs_operations), sizeof(fs_operations_t) + sizeof(std::shared_ptr<fs_operations_t>));
    EXPECT_EQ(inner_.use_count(), 2);
}

TEST_F(RelativeFsOperations, AbsolutePathIsWhatTheContextSays) {
    EXPECT_EQ(relative_fs_operations::GetAbsolutePath("rel/a"), "/abs/rel/a");
    EXPECT_EQ(relative_fs_operations::GetAbsolutePath("/other"), "/other");
}

TEST_F(RelativeFsOperations, ReadsAreMappedAndForwarded) {
    EXPECT_CALL(*inner_, OpenFile4Read("/abs/rel/a")).WillOnce(Return(rstream_));
    EXPECT_CALL(*inner_, OpenDisk4Read("/abs/rel/d")).WillOnce(Return(rstream_));
    EXPECT_EQ(operations_.OpenFile4Read("rel/a"), rstream_);
    EXPECT_EQ(operations_.OpenDisk4Read("rel/d"), rstream_);
}

TEST_F(RelativeFsOperations, ExclusiveReadHandsOnTheCallersOwnPath) {
    EXPECT_CALL(*inner_, OpenFile4ReadWithoutWriteShare("rel/a")).WillOnce(Return(rstream_));
    EXPECT_EQ(operations_.OpenFile4ReadWithoutWriteShare("rel/a"), rstream_);
}

TEST_F(RelativeFsOperations, WritesAreMappedAndForwardedWithTheirArguments) {
    EXPECT_CALL(*inner_, OpenFile4Write("/abs/rel/a", 17)).WillOnce(Return(wstream_));
    EXPECT_CALL(*inner_, CreateNewFile("/abs/rel/b", 18, true)).WillOnce(Return(wstream_));
    EXPECT_CALL(*inner_, CreateNewFile("/abs/rel/c", 19, false)).WillOnce(Return(wstream_));
    EXPECT_EQ(operations_.OpenFile4Write("rel/a", 17), wstream_);
    EXPECT_EQ(operations_.CreateNewFile("rel/b", 18, true), wstream_);
    EXPECT_EQ(operations_.CreateNewFile("rel/c", 19, false), wstream_);
}

TEST_F(RelativeFsOperations, PathOperationsAreMappedAndForwarded) {
    EXPECT_CALL(*inner_, CreateDir("/abs/rel/a"));
    EXPECT_CALL(*inner_, IsObjectExist("/abs/rel/b")).WillOnce(Return(true));
    EXPECT_CALL(*inner_, IsObjectExist("/abs/rel/c")).WillOnce(Return(false));
    EXPECT_CALL(*inner_, DeleteFile("/abs/rel/d"));
    EXPECT_CALL(*inner_, RenameFile("/abs/rel/e", "/abs/rel/f"));
    operations_.CreateDir("rel/a");
    EXPECT_TRUE(operations_.IsObjectExist("rel/b"));
    EXPECT_FALSE(operations_.IsObjectExist("rel/c"));
    operations_.DeleteFile("rel/d");
    operations_.RenameFile("rel/e", "rel/f");
}

TEST_F(RelativeFsOperations, QuestionsWithoutAPathAreForwarded) {
    EXPECT_CALL(*inner_, IsRenameSupported()).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_TRUE(operations_.IsRenameSupported());
    EXPECT_FALSE(operations_.IsRenameSupported());
    const auto media = std::make_shared<empty_media_t>();
    EXPECT_CALL(*inner_, GetBackupMedia()).WillOnce(Return(media));
    EXPECT_EQ(operations_.GetBackupMedia(), media);
}

TEST_F(RelativeFsOperations, MetadataIsMappedAndForwarded) {
    util::CFileInfo info;
    info.size = 42;
    EXPECT_CALL(*inner_, GetFileMetadata("/abs/rel/a", EFileInfoType::eFileInfoAclOnly)).WillOnce(Return(info));
    EXPECT_CALL(*inner_, SetFileMetadata(info, "/abs/rel/b"));
    EXPECT_EQ(operations_.GetFileMetadata("rel/a", EFileInfoType::eFileInfoAclOnly), info);
    operations_.SetFileMetadata(info, "rel/b");
}

TEST_F(RelativeFsOperations, LinksAreNeitherShownNorMade) {
    CSymlinkData link(ESymlinkType::eDirLink, "before");
    EXPECT_FALSE(operations_.TryGetSymLinkInfo("rel/a", link));
    EXPECT_EQ(std::string(link), "before");
    EXPECT_EQ(link.GetType(), ESymlinkType::eDirLink);
    const auto caught = tests::CatchError([&] { operations_.CreateSymLink("rel/a", link); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Not supported.");
}

TEST_F(RelativeFsOperations, ListingKeepsTheBaseRefusal) {
    const auto caught = tests::CatchError([&] { operations_.EnumerateDirectoryContent("rel/a"); });
    EXPECT_EQ(caught.type, "exc::CNotImplExc");
    EXPECT_EQ(caught.message, "fs_operations_t::EnumerateDirectoryContent");
}

/// One operation: how it is called by relative path, and the text that it puts over failures (empty: none).
struct operation_t {
    const char* name;
    std::function<void(relative_fs_operations&)> call;
    std::string text;
};

const operation_t kOperations[] = {
    {"OpenFile4Read", [](auto& fs) { fs.OpenFile4Read("rel/a"); },
     "Failed to open file for read by relative path [rel/a]."},
    {"OpenDisk4Read", [](auto& fs) { fs.OpenDisk4Read("rel/a"); },
     "Failed to open disk for read by relative path [rel/a]."},
    {"OpenFile4Write", [](auto& fs) { fs.OpenFile4Write("rel/a", 1); },
     "Failed to open file for write by relative path [rel/a]."},
    {"CreateNewFile", [](auto& fs) { fs.CreateNewFile("rel/a", 1, false); },
     "Failed to create new file by relative path [rel/a]."},
    {"IsObjectExist", [](auto& fs) { fs.IsObjectExist("rel/a"); },
     "Failed to check whether the file exists using relative path [rel/a]."},
    {"DeleteFile", [](auto& fs) { fs.DeleteFile("rel/a"); }, "Failed to delete file by relative path [rel/a]."},
    {"RenameFile", [](auto& fs) { fs.RenameFile("rel/a", "rel/%1"); },
     "Failed to rename file by relative path [rel/a] to [rel/%1]."},
    {"CreateDir", [](auto& fs) { fs.CreateDir("rel/a"); }, ""},
    {"GetFileMetadata", [](auto& fs) { fs.GetFileMetadata("rel/a", EFileInfoType::eFileInfoFull); }, ""},
    {"SetFileMetadata", [](auto& fs) { fs.SetFileMetadata(util::CFileInfo(), "rel/a"); }, ""},
    {"OpenFile4ReadWithoutWriteShare", [](auto& fs) { fs.OpenFile4ReadWithoutWriteShare("rel/a"); }, ""},
};

/// Makes every operation of a backend throw `error`.
template <class Error>
void FailAll(tests::mock_fs_operations_t& inner, const Error& error) {
    ON_CALL(inner, OpenFile4Read(_)).WillByDefault(Throw(error));
    ON_CALL(inner, OpenFile4ReadWithoutWriteShare(_)).WillByDefault(Throw(error));
    ON_CALL(inner, OpenDisk4Read(_)).WillByDefault(Throw(error));
    ON_CALL(inner, OpenFile4Write(_, _)).WillByDefault(Throw(error));
    ON_CALL(inner, CreateNewFile(_, _, _)).WillByDefault(Throw(error));
    ON_CALL(inner, CreateDir(_)).WillByDefault(Throw(error));
    ON_CALL(inner, IsObjectExist(_)).WillByDefault(Throw(error));
    ON_CALL(inner, DeleteFile(_)).WillByDefault(Throw(error));
    ON_CALL(inner, RenameFile(_, _)).WillByDefault(Throw(error));
    ON_CALL(inner, GetFileMetadata(_, _)).WillByDefault(Throw(error));
    ON_CALL(inner, SetFileMetadata(_, _)).WillByDefault(Throw(error));
}

void PrintTo(const operation_t& operation, std::ostream* out) {
    *out << operation.name;
}

class RelativeFsFailure : public testing::TestWithParam<operation_t> {
  protected:
    const std::shared_ptr<testing::NiceMock<tests::mock_fs_operations_t>> inner_ =
        std::make_shared<testing::NiceMock<tests::mock_fs_operations_t>>();
    relative_fs_operations operations_{inner_};
};

TEST_P(RelativeFsFailure, BackendsErrorGetsTheTextOrPassesUnchanged) {
    FailAll(*inner_, exc::CRuntimeExc("below"));
    const auto caught = tests::CatchError([&] { GetParam().call(operations_); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    if (GetParam().text.empty()) {
        EXPECT_EQ(caught.message, "below");
        EXPECT_THAT(caught.causes, IsEmpty());
    } else {
        EXPECT_EQ(caught.message, GetParam().text);
        EXPECT_THAT(caught.causes, ElementsAre("below"));
        EXPECT_EQ(caught.what, GetParam().text + "\nbelow");
    }
}

TEST_P(RelativeFsFailure, MappingsErrorGetsTheTextOrPassesUnchanged) {
    const tests::scoped_path_mapper_t mapper(
        [](const std::string&) -> std::string { throw std::out_of_range("unmappable"); });
    if (GetParam().name == std::string("OpenFile4ReadWithoutWriteShare")) {
        EXPECT_NO_THROW(GetParam().call(operations_)) << "this call does not map";
        return;
    }
    const auto caught = tests::CatchError([&] { GetParam().call(operations_); });
    if (GetParam().text.empty()) {
        EXPECT_EQ(caught.type, "std::out_of_range");
        EXPECT_EQ(caught.message, "unmappable");
    } else {
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, GetParam().text);
        EXPECT_THAT(caught.causes, ElementsAre("unmappable"));
    }
}

TEST_P(RelativeFsFailure, AlreadyExistsIsNeverWrapped) {
    FailAll(*inner_, exc::CAlreadyExistsExc("there already"));
    const auto caught = tests::CatchError([&] { GetParam().call(operations_); });
    EXPECT_EQ(caught.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(caught.message, "there already");
    EXPECT_THAT(caught.causes, IsEmpty());
}

TEST_P(RelativeFsFailure, ErrorOutsideTheStandardHierarchyGetsTheTextToo) {
    FailAll(*inner_, 5);
    if (GetParam().text.empty()) {
        EXPECT_THROW(GetParam().call(operations_), int);
    } else {
        EXPECT_THAT([&] { GetParam().call(operations_); },
                    testing::ThrowsMessage<exc::CRuntimeExc>(testing::StartsWith(GetParam().text)));
    }
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, RelativeFsFailure, testing::ValuesIn(kOperations),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace tarn::relative
