#include <fcntl.h>
#include <sys/stat.h>

#include <gmock/gmock.h>

#include "agent/verify/verify.h"
#include "tarn/fs_operations.h"
#include "tests/edge/edge_kit.h"
#include "tests/support/transfer_kit.h"
#include "tests/support/tree_snapshot.h"

/// Files and trees that lie below a served root, copied back, compared and copied on.
namespace tests {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class ReadBack : public edge_fixture_t {
  protected:
    ReadBack() {
        options_.recursive = true;
        options_.blockSize = 4096;
        const std::string top = Root() + "/tree";
        std::filesystem::create_directories(top + "/deep/er");
        std::filesystem::create_directory(top + "/empty directory");
        WriteFile(top + "/file", Noise(100'000));
        WriteFile(top + "/empty", "");
        WriteFile(top + "/deep/er/block", Noise(4096, 2));
        WriteFile(top + "/odd\n\xff name", "odd");
        WriteFile(top + "/hole", "begin");
        std::filesystem::resize_file(top + "/hole", std::uintmax_t{64} << 20);
        std::filesystem::create_symlink("file", top + "/link");
        std::filesystem::create_symlink("/no/such/place", top + "/deep/dangling");
        EXPECT_EQ(::chmod((top + "/deep").c_str(), 02751), 0);
        EXPECT_EQ(::chmod((top + "/file").c_str(), 0604), 0);
        const timespec times[2] = {{1, 2}, {-3, 456'789'123}};
        for (const char* const name : {"/file", "/link", "/deep/er", "/empty directory", ""}) {
            EXPECT_EQ(::utimensat(AT_FDCWD, (top + name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
        }
    }

    std::string Served(const std::string& name) const { return Remote(server_.Port(), name); }
    std::uint64_t BlocksOf(const std::string& path) const {
        struct stat found {};
        EXPECT_EQ(::stat(path.c_str(), &found), 0);
        return static_cast<std::uint64_t>(found.st_blocks);
    }
    std::vector<std::string> Differences(const std::string& first, const std::string& second) {
        std::vector<std::string> texts;
        for (const auto& difference : agent::verify::Verify(first, second, {}).differences) {
            texts.push_back(difference.path + ": " + difference.text);
        }
        return texts;
    }

    serve_child_t server_{TARN_COMMAND, Root(), {}};
    agent::copy::copy_options_t options_;
};

TEST_F(ReadBack, TreeArrivesAsItIs) {
    const copy_outcome_t outcome = CopyAll({Served("tree")}, Place("back"), options_);
    ASSERT_TRUE(outcome.IsClean()) << outcome.Failure();
    EXPECT_EQ(SnapshotOf(Place("back")), SnapshotOf(Root() + "/tree"));
    EXPECT_EQ(outcome.report.files, 5U);
    EXPECT_EQ(outcome.report.directories, 4U);
    EXPECT_EQ(outcome.report.links, 2U);
    EXPECT_THAT(outcome.report.warnings, IsEmpty());
    EXPECT_LE(BlocksOf(Place("back") + "/hole"), BlocksOf(Root() + "/tree/hole") + 8) << "a hole stays a hole";
    EXPECT_TRUE(server_.IsBackAtStart());
}

TEST_F(ReadBack, ContentsOfTheRootItselfGoIntoAnExistingDirectory) {
    const std::string back = Place("back");
    std::filesystem::create_directory(back);
    const copy_outcome_t outcome = CopyAll({Served("")}, back, options_);
    ASSERT_TRUE(outcome.IsClean()) << outcome.Failure();
    EXPECT_EQ(SnapshotOf(back + "/tree"), SnapshotOf(Root() + "/tree"));
    EXPECT_FALSE(std::filesystem::exists(back + "/.tarn-staging/journal.copy")) << "nothing staged comes along";
}

TEST_F(ReadBack, SingleFileGoesToMemory) {
    const copy_outcome_t outcome = CopyAll({Served("tree/file")}, "MemFs://read-back", options_);
    ASSERT_TRUE(outcome.IsClean()) << outcome.Failure();
    EXPECT_THAT(Differences(Served("tree/file"), "MemFs://read-back"), IsEmpty());
    EXPECT_THAT(Differences("MemFs://read-back", Root() + "/tree/file"), IsEmpty());
}

TEST_F(ReadBack, TreeGoesFromAgentToAgent) {
    std::filesystem::create_directory(Place("other"));
    serve_child_t other(TARN_COMMAND, Place("other"), {});
    const copy_outcome_t outcome = CopyAll({Served("tree")}, Remote(other.Port(), "copy"), options_);
    ASSERT_TRUE(outcome.IsClean()) << outcome.Failure();
    EXPECT_EQ(SnapshotOf(Place("other/copy")), SnapshotOf(Root() + "/tree"));
    EXPECT_THAT(Differences(Served("tree"), Remote(other.Port(), "copy")), IsEmpty());
}

TEST_F(ReadBack, TreeIsCopiedWithinOneAgentButNotIntoItself) {
    const copy_outcome_t outcome = CopyAll({Served("tree")}, Served("copy"), options_);
    ASSERT_TRUE(outcome.IsClean()) << outcome.Failure();
    EXPECT_EQ(SnapshotOf(Root() + "/copy"), SnapshotOf(Root() + "/tree"));
    EXPECT_THAT(CopyAll({Served("tree")}, Served("tree/deep/copy"), options_).thrown,
                HasSubstr("cannot be copied into itself"));
    EXPECT_THAT(CopyAll({Served("")}, Served("copy"), options_).thrown, HasSubstr("cannot be copied into itself"));
}

TEST_F(ReadBack, DirectoryWithoutRecursionIsRefused) {
    options_.recursive = false;
    EXPECT_THAT(CopyAll({Served("tree")}, Place("back"), options_).thrown, HasSubstr("is a directory; -r copies it"));
    EXPECT_FALSE(std::filesystem::exists(Place("back")));
}

TEST_F(ReadBack, SourceThatIsNotThereIsNamed) {
    EXPECT_THAT(CopyAll({Served("missing")}, Place("back"), options_).thrown,
                HasSubstr("Failed to open [" + Served("missing") + "]"));
}

TEST_F(ReadBack, LinksAtTheFarEndLeadNowhere) {
    std::filesystem::create_directory_symlink(Place("canary"), Root() + "/out");
    EXPECT_THAT(CopyAll({Served("out/file")}, Place("back"), options_).thrown, HasSubstr("Failed to open"));
    ASSERT_TRUE(CopyAll({Served("out")}, Place("back"), options_).IsClean());
    EXPECT_TRUE(std::filesystem::is_symlink(Place("back"))) << "the link itself is copied, not what it leads to";
}

TEST_F(ReadBack, VerifyNamesEachDifferenceInContentAndAttributes) {
    ASSERT_TRUE(CopyAll({Served("tree")}, Place("back"), options_).IsClean());
    EXPECT_THAT(Differences(Served("tree"), Place("back")), IsEmpty());
    EXPECT_THAT(Differences(Place("back"), Served("tree")), IsEmpty());
    std::filesystem::permissions(Place("back/empty"), std::filesystem::perms(0600));
    std::filesystem::remove(Place("back/link"));
    WriteFile(Place("back/more"), "x");
    struct stat before {};
    ASSERT_EQ(::stat(Place("back/deep/er/block").c_str(), &before), 0);
    const int fd = ::open(Place("back/deep/er/block").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(fd, "xyz", 3, 1000), 3);
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::futimens(fd, times), 0);
    ::close(fd);
    const auto found = Differences(Served("tree"), Place("back"));
    const std::string all = testing::PrintToString(found);
    EXPECT_THAT(all, HasSubstr("link: missing in the second"));
    EXPECT_THAT(all, HasSubstr("more: only in the second"));
    EXPECT_THAT(all, HasSubstr("deep/er/block: content differs at byte 1000"));
    EXPECT_THAT(all, HasSubstr("mode"));
}

TEST_F(ReadBack, MemoryDoesNotGrowWithTheFile) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer keeps what was freed, so memory grows with what passes through it";
#endif
    WriteFile(Root() + "/large", Noise(std::size_t{96} << 20));
    const std::size_t before = server_.PeakMemory();
    const copy_outcome_t outcome = CopyAll({Served("large")}, Place("back"), options_);
    ASSERT_TRUE(outcome.IsClean()) << outcome.Failure();
    EXPECT_EQ(std::filesystem::file_size(Place("back")), std::uintmax_t{96} << 20);
    EXPECT_LE(server_.PeakMemory(), before + (std::size_t{48} << 20));
}

TEST_F(ReadBack, ServerKilledInTheMiddleLeavesNothingUnderTheTargetsName) {
    std::filesystem::create_directory(Place("second root"));
    WriteFile(Place("second root/large"), Noise(std::size_t{32} << 20));
    class killing_observer_t final : public agent::copy::copy_observer_t {
      public:
        explicit killing_observer_t(std::unique_ptr<serve_child_t>& child) : child_(child) {}
        void OnBytes(std::uint64_t bytes) override {
            seen_ += bytes;
            if (seen_ > (std::uint64_t{4} << 20)) {
                child_.reset();
            }
        }

      private:
        std::unique_ptr<serve_child_t>& child_;
        std::uint64_t seen_ = 0;
    };
    auto child = std::make_unique<serve_child_t>(TARN_COMMAND, Place("second root"), serve_child_options_t{});
    killing_observer_t observer(child);
    const auto report = agent::copy::Copy({Remote(child->Port(), "large")}, Place("back"), options_, observer);
    ASSERT_EQ(report.failed.size(), 1U);
    EXPECT_THAT(report.failed.front().text, HasSubstr("Failed to read [tarn://127.0.0.1:"));
    EXPECT_FALSE(std::filesystem::exists(Place("back")));
}

}  // namespace
}  // namespace tests
