#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blobfs/blobfs_operations.h"
#include "tarn/flr/flrfs_operations.h"
#include "tarn/fs_operations.h"
#include "tarn/hostfs/hostfs_operations.h"
#include "tarn/memfs/memfs_operations.h"
#include "tarn/relative/relative_fs_operations.h"
#include "tests/support/caught_error.h"
#include "tests/support/fake_blobfs_operations.h"
#include "tests/support/scoped_path_mapper.h"
#include "tests/support/temp_dir.h"

namespace tarn {
namespace {

std::shared_ptr<fs_operations_t> Recognize(const std::string& path, int mode = 0) {
    return fs_operations_t::RecognizeFsPath(path, mode);
}

template <class Backend>
bool Is(const std::shared_ptr<fs_operations_t>& operations) {
    const fs_operations_t* const found = operations.get();
    return found != nullptr && typeid(*found) == typeid(Backend);
}

const std::string kTapeLin = "tdatafs://name|5";
const std::string kTapeWin = "tdatafs:\\\\name|5";

TEST(RecognizeFsPath, RestoreViewNeedsItsExactPrefix) {
    EXPECT_TRUE(Is<flrfs_operations_t>(Recognize("FlrFS://")));
    EXPECT_TRUE(Is<flrfs_operations_t>(Recognize("FlrFS:///mnt/a")));
    EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize("flrfs:///mnt/a")));
    EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize("/FlrFS:///mnt/a")));
}

TEST(RecognizeFsPath, TapeDataIsRefusedInBothForms) {
    for (const std::string& path : {kTapeLin, kTapeWin, std::string("tdatafs://")}) {
        const auto caught = tests::CatchError([&] { Recognize(path); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, "TapeDataFs not supported.");
        EXPECT_TRUE(caught.causes.empty());
    }
    EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize("TDATAFS://name|5")));
    EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize("tdatafs:/name")));
}

TEST(RecognizeFsPath, MemoryPathsReachMemory) {
    EXPECT_TRUE(Is<memfs::memfs_operations_t>(Recognize("MemFs://slot")));
    EXPECT_TRUE(Is<memfs::memfs_operations_t>(Recognize("memfs://slot")));
}

TEST(RecognizeFsPath, EverythingElseReachesTheHost) {
    for (const std::string path : {"", "/", "/a", "a/b", "x://y", "cloudfs://bucket/key", "ExtentExFS[guid]/a",
                                   "RelativePath://a", "blobfs://x", "://"}) {
        EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize(path))) << path;
    }
}

TEST(RecognizeFsPath, EachCallMakesANewBackend) {
    EXPECT_NE(Recognize("/a"), Recognize("/a"));
    EXPECT_NE(Recognize("MemFs://a"), Recognize("MemFs://a"));
    EXPECT_NE(Recognize("FlrFS://a"), Recognize("FlrFS://a"));
}

TEST(RecognizeFsPath, RegisteredBlobPrefixGivesTheRegisteredObject) {
    const tests::scoped_blobfs_t blob("blobfs://");
    EXPECT_EQ(Recognize("blobfs:///target"), blob.operations);
    EXPECT_EQ(Recognize("blobfs://"), blob.operations);
    EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize("BLOBFS://x")));
}

TEST(RecognizeFsPath, OtherFormsWinOverBlobPrefixes) {
    const tests::scoped_blobfs_t view("FlrFS://");
    const tests::scoped_blobfs_t tape("tdatafs://");
    const tests::scoped_blobfs_t memory("MemFs://");
    EXPECT_TRUE(Is<flrfs_operations_t>(Recognize("FlrFS://a")));
    EXPECT_THROW(Recognize(kTapeLin), exc::CRuntimeExc);
    EXPECT_TRUE(Is<memfs::memfs_operations_t>(Recognize("MemFs://a")));
}

TEST(RecognizeFsPath, MapperIsAskedOnceWithThePath) {
    std::vector<std::string> asked;
    const tests::scoped_path_mapper_t mapper([&](const std::string& path) {
        asked.push_back(path);
        return path == "rel" ? "/real" : path;
    });
    EXPECT_TRUE(Is<relative::relative_fs_operations>(Recognize("rel")));
    EXPECT_THAT(asked, testing::ElementsAre("rel"));
    EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize("/plain")));
    EXPECT_THAT(asked, testing::ElementsAre("rel", "/plain"));
}

TEST(RecognizeFsPath, ShorterOrEmptyMappingCountsAsAnother) {
    const tests::scoped_path_mapper_t mapper(
        [](const std::string& path) { return path.empty() ? path : path.substr(0, path.size() - 1); });
    EXPECT_TRUE(Is<relative::relative_fs_operations>(Recognize("ab")));
    EXPECT_TRUE(Is<relative::relative_fs_operations>(Recognize("a")));
    EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize("")));
}

TEST(RecognizeFsPath, WrapperServesTheBackendOfTheMappedPath) {
    const tests::scoped_path_mapper_t mapper(
        [](const std::string& path) { return path == "rel" ? "MemFs://recognize_mapped" : path; });
    const auto operations = Recognize("rel");
    ASSERT_TRUE(Is<relative::relative_fs_operations>(operations));
    EXPECT_FALSE(operations->IsObjectExist("rel"));
    operations->CreateNewFile("rel", 0, true)->Close(nullptr);
    EXPECT_TRUE(Recognize("MemFs://recognize_mapped")->IsObjectExist("MemFs://recognize_mapped"));
    operations->DeleteFile("rel");
    EXPECT_FALSE(operations->IsRenameSupported());
}

TEST(RecognizeFsPath, MappedTapePathIsRefusedToo) {
    const tests::scoped_path_mapper_t mapper([](const std::string&) { return kTapeLin; });
    const auto caught = tests::CatchError([] { Recognize("rel"); });
    EXPECT_EQ(caught.message, "TapeDataFs not supported.");
}

TEST(RecognizeFsPath, MapperFailurePassesUnchanged) {
    const tests::scoped_path_mapper_t mapper([](const std::string&) -> std::string { throw std::out_of_range("no"); });
    EXPECT_THROW(Recognize("rel"), std::out_of_range);
}

TEST(RecognizeFsPath, DisabledPlainPathsRefuseEveryUnmappedPath) {
    const tests::scoped_blobfs_t blob("blobfs://");
    const tests::scoped_path_mapper_t mapper([](const std::string& path) { return path == "rel" ? "/real" : path; });
    CCorvelCtx::Inst()->SetNonPrefixPathesDisabled(true);
    for (const std::string& path :
         {std::string("/a"), std::string("MemFs://a"), std::string("FlrFS://x"), kTapeLin, std::string("blobfs://x")}) {
        const auto caught = tests::CatchError([&] { Recognize(path); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, "Non prefix paths are disabled.") << path;
    }
    EXPECT_TRUE(Is<relative::relative_fs_operations>(Recognize("rel")));
}

TEST(RecognizeFsPath, ReentryAsksNeitherMapperNorSwitch) {
    int asked = 0;
    const tests::scoped_path_mapper_t mapper([&](const std::string& path) {
        ++asked;
        return path + "!";
    });
    CCorvelCtx::Inst()->SetNonPrefixPathesDisabled(true);
    EXPECT_TRUE(Is<hostfs::hostfs_operations_t>(Recognize("/a", 1)));
    EXPECT_TRUE(Is<memfs::memfs_operations_t>(Recognize("MemFs://a", 1)));
    EXPECT_EQ(asked, 0);
}

// What holds for every backend that the dispatcher hands out; paths are in each backend's own form.
class EveryBackend : public testing::TestWithParam<const char*> {
  protected:
    std::shared_ptr<fs_operations_t> Operations() const { return Recognize(GetParam()); }

    const tests::scoped_blobfs_t blob_{"blobfs://"};
    const tests::scoped_path_mapper_t mapper_{
        [](const std::string& path) { return path.starts_with("rel/") ? "/nowhere/" + path : path; }};
};

TEST_P(EveryBackend, ListingIsRefusedInTheNameOfTheBaseClass) {
    const auto caught = tests::CatchError([&] { Operations()->EnumerateDirectoryContent(GetParam()); });
    EXPECT_EQ(caught.type, "exc::CNotImplExc");
    EXPECT_EQ(caught.message, "fs_operations_t::EnumerateDirectoryContent");
}

INSTANTIATE_TEST_SUITE_P(Dispatched, EveryBackend,
                         testing::Values("/nowhere/a", "MemFs://a", "blobfs://a", "FlrFS:///a", "rel/a"));

TEST(RecognizeFsPath, NoBackendServesDisks) {
    const tests::scoped_path_mapper_t mapper(
        [](const std::string& path) { return path == "rel" ? "/dev/nothing" : path; });
    const auto textOf = [](const std::string& path) {
        return tests::CatchError([&] { Recognize(path)->OpenDisk4Read(path); }).message;
    };
    EXPECT_EQ(textOf("/dev/nothing"), "HostFS doesn't support disk operations. Disk path: [/dev/nothing].");
    EXPECT_EQ(textOf("MemFs://a"), "MemFS doesn't support disk operations. Disk path: [MemFs://a].");
    EXPECT_EQ(textOf("FlrFS:///a"), "Disks are not supported by FLR FS platform.");
    EXPECT_EQ(textOf("rel"), "Failed to open disk for read by relative path [rel].");
}

class HostPath : public testing::Test {
  protected:
    std::string Path(const std::string& name) const { return (std::filesystem::path(dir_.path()) / name).string(); }

    tests::temp_dir_t dir_;
};

TEST_F(HostPath, RegularFileIsNoLinkAndLeavesTheRecord) {
    std::ofstream(Path("file")) << "x";
    CSymlinkData link(ESymlinkType::eDirLink, "before");
    EXPECT_FALSE(Recognize(Path("file"))->TryGetSymLinkInfo(Path("file"), link));
    EXPECT_EQ(link.GetType(), ESymlinkType::eDirLink);
    EXPECT_EQ(std::string(link), "before");
}

TEST_F(HostPath, LinkBehindARelativePathIsNotShown) {
    std::filesystem::create_symlink("target", Path("link"));
    const tests::scoped_path_mapper_t mapper(
        [this](const std::string& path) { return path == "rel" ? Path("link") : path; });
    CSymlinkData link(ESymlinkType::eDirLink, "before");
    EXPECT_FALSE(Recognize("rel")->TryGetSymLinkInfo("rel", link));
    EXPECT_EQ(std::string(link), "before");
    EXPECT_TRUE(Recognize(Path("link"))->TryGetSymLinkInfo(Path("link"), link));
    EXPECT_EQ(std::string(link), "target");
}

}  // namespace
}  // namespace tarn
