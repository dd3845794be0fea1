#include "tarn/blobfs/blobfs_operations.h"

#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/caught_error.h"
#include "tests/support/fake_blobfs_operations.h"
#include "tests/support/log_capture.h"

namespace tarn::blobfs {
namespace {

static_assert(std::is_abstract_v<blobfs_operations_t>);
static_assert(std::is_same_v<decltype(mapBlobFsOps), std::map<std::string, std::shared_ptr<blobfs_operations_t>>>);

TEST(BlobfsOperations, RegisteredPrefixIsRecognisedExactly) {
    const tests::scoped_blobfs_t blob("blobfs://");
    EXPECT_TRUE(blobfs_operations_t::IsBlobFsPath("blobfs://a"));
    EXPECT_TRUE(blobfs_operations_t::IsBlobFsPath("blobfs://"));
    for (const std::string path : {"", "a", "blobfs:/a", "blobfs", "Blobfs://a", "xblobfs://a", "other://a", "://a"}) {
        EXPECT_FALSE(blobfs_operations_t::IsBlobFsPath(path)) << path;
    }
}

TEST(BlobfsOperations, NothingIsRegisteredByDefault) {
    EXPECT_TRUE(mapBlobFsOps.empty());
    EXPECT_FALSE(blobfs_operations_t::IsBlobFsPath("blobfs://a"));
}

TEST(BlobfsOperations, PathIsSplitAtItsFirstSeparator) {
    const tests::scoped_blobfs_t outer("a://");
    const tests::scoped_blobfs_t inner("a://b://");
    EXPECT_EQ(blobfs_operations_t::GetByFsPath("a://b://c"), outer.operations);
    EXPECT_FALSE(blobfs_operations_t::IsBlobFsPath("/x/a://b"));
}

TEST(BlobfsOperations, AnyRegisteredWordWillDo) {
    const tests::scoped_blobfs_t bare("://");
    const tests::scoped_blobfs_t other("batch 7://");
    EXPECT_EQ(blobfs_operations_t::GetByFsPath(":///a"), bare.operations);
    EXPECT_EQ(blobfs_operations_t::GetByFsPath("batch 7:///a"), other.operations);
    EXPECT_EQ(blobfs_operations_t::GetByFsPath("batch 7://"), other.operations);
}

TEST(BlobfsOperations, PathWithoutPrefixIsRefusedByName) {
    const auto caught = tests::CatchError([] { blobfs_operations_t::GetByFsPath("/a/b"); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Invalid prefix in fs_path [/a/b]");
}

TEST(BlobfsOperations, UnknownPrefixIsRefusedByName) {
    const auto caught = tests::CatchError([] { blobfs_operations_t::GetByFsPath("blobfs://a/b"); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Cannot find fs_operation object by prefix [blobfs://].");
}

TEST(BlobfsOperations, LifeIsTraced) {
    const tests::log_capture_t log;
    tests::fake_blobfs_operations_t();
    EXPECT_TRUE(log.Has(logging::ELevel::eTrace, "blobfs_operations_t"));
    EXPECT_TRUE(log.Has(logging::ELevel::eTrace, "~blobfs_operations_t"));
}

}  // namespace
}  // namespace tarn::blobfs
