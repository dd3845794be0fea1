#include "agent/batch/batch_backend.h"

#include <gtest/gtest.h>

#include <string>

#include "agent/batch/batch_connection.h"
#include "agent/batch/batch_folder.h"
#include "tarn/symlink_data.h"
#include "tests/support/caught.h"

namespace agent::batch {
namespace {

class BatchBackend : public ::testing::Test {
  protected:
    batch_folder_t folder_;
    std::shared_ptr<batch_connection_t> connection_ = std::make_shared<batch_connection_t>(folder_.GetPath());
    std::shared_ptr<tarn::blobfs::BlobCreater> creater_ = std::make_shared<tarn::blobfs::BlobCreater>(connection_);
    batch_backend_t backend_{creater_};
};

TEST_F(BatchBackend, ConnectionTellsTheFileThatWasWrittenOnce) {
    EXPECT_EQ(connection_->TakePath(), "");
    backend_.CreateDir("blobfs://dir");
    creater_->Finish();
    EXPECT_EQ(connection_->TakePath(), folder_.GetPath() + "/blobfs0");
    EXPECT_EQ(connection_->TakePath(), "");
}

TEST_F(BatchBackend, PathThatIsTooLongIsRefusedBeforeAnythingIsWritten) {
    const std::string most = "blobfs://" + std::string(batch_backend_t::kMaxPathBytes, 'p');
    const std::string more = most + "p";
    const std::string text = "Path of [4096] bytes is longer than the allowed [4095].";
    EXPECT_EQ(tests::Catch([&] { backend_.CreateDir(more); }).message, text);
    EXPECT_EQ(tests::Catch([&] { backend_.CreateNewFile(more, 0, true); }).message, text);
    EXPECT_EQ(tests::Catch([&] { backend_.SetFileMetadata({}, more); }).message, text);
    creater_->Finish();
    EXPECT_EQ(connection_->TakePath(), "");
    backend_.CreateDir(most);
    creater_->Finish();
    EXPECT_NE(connection_->TakePath(), "");
}

TEST_F(BatchBackend, WhatABlobFileCannotDoIsRefusedByName) {
    tarn::CSymlinkData link;
    EXPECT_EQ(tests::Catch([&] { backend_.OpenFile4ReadWithoutWriteShare("blobfs://a"); }).message,
              "OpenFile4ReadWithoutWriteShare");
    EXPECT_EQ(
        tests::Catch([&] { backend_.GetFileMetadata("blobfs://a", tarn::EFileInfoType::eFileInfoBasic); }).message,
        "GetFileMetadata");
    EXPECT_EQ(tests::Catch([&] { backend_.TryGetSymLinkInfo("blobfs://a", link); }).message, "TryGetSymLinkInfo");
    EXPECT_EQ(tests::Catch([&] { backend_.CreateSymLink("blobfs://a", link); }).message, "CreateSymLink");
}

}  // namespace
}  // namespace agent::batch
