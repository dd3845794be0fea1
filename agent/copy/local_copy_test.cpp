#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "agent/copy/copy.h"
#include "agent/verify/verify.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/exception.h"
#include "tarn/memfs/memfs_mem_slots.h"
#include "tests/support/temp_dir.h"

namespace agent::copy {
namespace {

namespace fs = std::filesystem;

class LocalCopy : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(At("src/sub/empty"));
        Write("src/sub/file", std::string(3 << 20, 'x') + "end");
        Write("src/nothing", "");
        fs::create_symlink("sub/file", At("src/link"));
        fs::create_symlink("/nowhere", At("src/dangling"));
        ASSERT_EQ(::chmod(At("src/sub/file").c_str(), 04750), 0);
        ASSERT_EQ(::chmod(At("src/sub").c_str(), 0711), 0);
        const timespec times[2] = {{-5, 7}, {-86400, 987654321}};
        for (const char* name : {"src/sub/file", "src/link", "src/sub/empty", "src/sub", "src"}) {
            ASSERT_EQ(::utimensat(AT_FDCWD, At(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
        }
    }

    std::string At(const std::string& name) const { return dir_.path() + "/" + name; }
    void Write(const std::string& name, const std::string& text) const { std::ofstream(At(name)) << text; }
    std::string Read(const std::string& name) const {
        std::ifstream file(At(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    copy_report_t Run(const std::vector<std::string>& sources, const std::string& destination,
                      copy_options_t options = {}) {
        copy_observer_t silent;
        return Copy(sources, destination, options, silent);
    }

    static copy_options_t Recursive(bool overwrite = false) {
        copy_options_t options;
        options.recursive = true;
        options.overwrite = overwrite;
        return options;
    }

    void ExpectSame(const std::string& first, const std::string& second) const {
        for (const auto& difference : verify::Verify(At(first), At(second), {}).differences) {
            ADD_FAILURE() << difference.path << ": " << difference.text;
        }
    }

    tests::temp_dir_t dir_;
};

TEST_F(LocalCopy, TreeArrivesWithContentsAttributesLinksAndEmptyDirectories) {
    const copy_report_t report = Run({At("src")}, At("dst"), Recursive());
    EXPECT_TRUE(report.failed.empty());
    EXPECT_EQ(report.files, 2u);
    EXPECT_EQ(report.directories, 3u);
    EXPECT_EQ(report.links, 2u);
    EXPECT_EQ(report.bytes, (3u << 20) + 3u);
    ExpectSame("src", "dst");
}

TEST_F(LocalCopy, NothingOfTheStagingFolderStays) {
    Run({At("src")}, At("dst"), Recursive());
    EXPECT_FALSE(fs::exists(At(".tarn-staging")));
    EXPECT_FALSE(fs::exists(At("dst/.tarn-staging")));
}

TEST_F(LocalCopy, SourcesGoBelowAnExistingDirectoryUnderTheirNames) {
    fs::create_directory(At("dst"));
    Run({At("src/nothing"), At("src/sub")}, At("dst"), Recursive());
    ExpectSame("src/nothing", "dst/nothing");
    ExpectSame("src/sub", "dst/sub");
}

TEST_F(LocalCopy, SeveralSourcesNeedADirectory) {
    try {
        Run({At("src/nothing"), At("src/link")}, At("missing"));
        FAIL();
    } catch (const exc::CException& error) {
        EXPECT_EQ(error.Message(), "[" + At("missing") + "] is not a directory, so it takes a single source.");
    }
}

TEST_F(LocalCopy, DirectoryNeedsRecursive) {
    try {
        Run({At("src")}, At("dst"));
        FAIL();
    } catch (const exc::CException& error) {
        EXPECT_EQ(error.Message(), "[" + At("src") + "] is a directory; -r copies it with everything in it.");
    }
    EXPECT_FALSE(fs::exists(At("dst")));
}

TEST_F(LocalCopy, ExistingTargetIsNamedAndNothingIsChanged) {
    fs::create_directories(At("dst/src/sub"));
    Write("dst/src/sub/file", "old");
    try {
        Run({At("src")}, At("dst"), Recursive());
        FAIL();
    } catch (const exc::CAlreadyExistsExc& error) {
        EXPECT_EQ(error.Message(), "[" + At("dst/src/sub/file") + "] exists already; nothing was changed.");
    }
    EXPECT_EQ(Read("dst/src/sub/file"), "old");
    EXPECT_FALSE(fs::exists(At("dst/src/nothing")));
}

TEST_F(LocalCopy, OverwriteReplacesFilesAndMergesDirectories) {
    fs::create_directories(At("dst/src/sub"));
    Write("dst/src/sub/file", "old");
    Write("dst/src/sub/other", "stays");
    const copy_report_t report = Run({At("src")}, At("dst"), Recursive(true));
    EXPECT_TRUE(report.failed.empty());
    ExpectSame("src/sub/file", "dst/src/sub/file");
    EXPECT_EQ(Read("dst/src/sub/other"), "stays");
}

TEST_F(LocalCopy, FileInTheWayOfADirectoryIsNamed) {
    fs::create_directory(At("dst"));
    Write("dst/src", "file");
    EXPECT_THROW(Run({At("src")}, At("dst"), Recursive()), exc::CAlreadyExistsExc);
}

TEST_F(LocalCopy, OverwriteReplacesAFileByADirectoryBeforeItsContentsCome) {
    fs::create_directories(At("dst/src"));
    Write("dst/src/sub", "a file");
    const copy_report_t report = Run({At("src")}, At("dst"), Recursive(true));
    EXPECT_TRUE(report.failed.empty()) << report.failed[0].text;
    EXPECT_EQ(report.directories, 3u);
    ExpectSame("src", "dst/src");
}

TEST_F(LocalCopy, LinkIsCopiedAsALinkAndFollowedWithATrailingSlash) {
    Run({At("src/link")}, At("as-link"));
    EXPECT_TRUE(fs::is_symlink(At("as-link")));
    Run({At("src/link/")}, At("as-file"));
    EXPECT_FALSE(fs::is_symlink(At("as-file")));
    ExpectSame("src/sub/file", "as-file");
}

TEST_F(LocalCopy, DanglingLinkAtTheTargetIsInTheWayAndIsReplacedNotFollowed) {
    fs::create_symlink(At("outside"), At("dst"));
    EXPECT_THROW(Run({At("src/nothing")}, At("dst")), exc::CAlreadyExistsExc);
    Run({At("src/nothing")}, At("dst"), Recursive(true));
    EXPECT_FALSE(fs::is_symlink(At("dst")));
    EXPECT_FALSE(fs::exists(At("outside")));
}

TEST_F(LocalCopy, MissingParentsAreMade) {
    Run({At("src/nothing")}, At("new/deep/file"));
    ExpectSame("src/nothing", "new/deep/file");
    struct stat attributes {};
    ASSERT_EQ(::stat(At("new").c_str(), &attributes), 0);
    EXPECT_EQ(attributes.st_mode & 07777, 0700u);
}

TEST_F(LocalCopy, SpecialFilesAreSkippedAndNamed) {
    ASSERT_EQ(::mkfifo(At("src/pipe").c_str(), 0600), 0);
    const copy_report_t report = Run({At("src")}, At("dst"), Recursive());
    ASSERT_EQ(report.skipped.size(), 1u);
    EXPECT_NE(report.skipped[0].path.find("src/pipe"), std::string::npos);
    EXPECT_EQ(report.skipped[0].text, "FIFO");
    EXPECT_FALSE(fs::exists(At("dst/pipe")));
}

TEST_F(LocalCopy, MissingSourceIsAnErrorBeforeAnythingIsChanged) {
    EXPECT_THROW(Run({At("src/nothing"), At("missing")}, At("src/sub")), exc::CException);
    EXPECT_FALSE(fs::exists(At("src/sub/nothing")));
}

TEST_F(LocalCopy, ContentsTravelThroughMemoryAndBack) {
    Run({At("src/sub/file")}, "MemFs://local_copy_test");
    EXPECT_THROW(Run({At("src/nothing")}, "MemFs://local_copy_test"), exc::CAlreadyExistsExc);
    Run({"memfs://local_copy_test"}, At("back"));
    EXPECT_EQ(Read("back"), Read("src/sub/file"));
    tarn::memfs::memfs_mem_slots_t::Inst().DeleteSlot("local_copy_test");
}

TEST_F(LocalCopy, MemoryTakesASingleFileOnly) {
    const copy_report_t report = Run({At("src/link")}, "MemFs://local_copy_link");
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_EQ(report.failed[0].text, "[MemFs://local_copy_link] takes a single file.");
}

TEST_F(LocalCopy, DotAsSourceMergesIntoTheDestination) {
    fs::create_directory(At("dst"));
    Run({At("src/.")}, At("dst"), Recursive());
    ExpectSame("src/sub", "dst/sub");
    ExpectSame("src/nothing", "dst/nothing");
}

TEST_F(LocalCopy, DirectoryIsNotCopiedIntoItself) {
    for (const std::string& destination : {At("src"), At("src/sub"), At("src/sub/new/deep")}) {
        try {
            Run({At("src")}, destination, Recursive());
            ADD_FAILURE() << destination;
        } catch (const exc::CException& error) {
            EXPECT_EQ(error.Message(), "[" + At("src") + "] cannot be copied into itself, [" + destination + "].");
        }
    }
    EXPECT_FALSE(fs::exists(At("src/sub/new")));
}

TEST_F(LocalCopy, LinkToADirectoryAboveTheDestinationIsCopiedAsTheLinkThatItIs) {
    fs::create_symlink("..", At("src/sub/up"));
    Run({At("src/sub/up")}, At("src/sub/copy-of-up"));
    EXPECT_EQ(fs::read_symlink(At("src/sub/copy-of-up")), "..");
}

TEST_F(LocalCopy, StopRequestEndsTheCopy) {
    std::stop_source source;
    source.request_stop();
    copy_options_t options = Recursive();
    options.remote.stop = source.get_token();
    EXPECT_THROW(Run({At("src")}, At("dst"), options), exc::CException);
    EXPECT_FALSE(fs::exists(At("dst")));
}

TEST_F(LocalCopy, ObserverHearsThePlanAndEveryItem) {
    class observer_t final : public copy_observer_t {
      public:
        void OnPlanned(std::uint64_t allItems, std::uint64_t allBytes) override {
            plannedItems = allItems;
            plannedBytes = allBytes;
        }
        void OnBytes(std::uint64_t count) override { bytes += count; }
        void OnItemDone(const std::string&) override { ++items; }
        std::uint64_t plannedItems = 0, plannedBytes = 0, items = 0, bytes = 0;
    };
    observer_t observer;
    Copy({At("src")}, At("dst"), Recursive(), observer);
    EXPECT_EQ(observer.plannedItems, 7u);
    EXPECT_EQ(observer.items, 7u);
    EXPECT_EQ(observer.plannedBytes, (3u << 20) + 3u);
    EXPECT_EQ(observer.bytes, observer.plannedBytes);
}

}  // namespace
}  // namespace agent::copy
