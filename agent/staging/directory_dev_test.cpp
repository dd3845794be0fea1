#include "agent/staging/directory_dev.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/staging_fixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using tests::TextOf;

class DirectoryDev : public tests::staging_fixture_t {
  protected:
    static item_t Directory(const std::string& path) { return Item(EItemKind::eDirectory, path); }

    static item_t WithInfo(const std::string& path) {
        item_t item = Directory(path);
        item.info.type = util::EFileType::eDirectory;
        item.info.owner = {"", 1234};
        item.info.group = {"", 2345};
        item.info.mode = 02755;
        item.info.modificationTime = {1100000000, 7};
        return item;
    }

    struct stat StatOf(const std::string& name) const {
        struct stat found {};
        EXPECT_EQ(::lstat((Inside() / name).c_str(), &found), 0) << name;
        return found;
    }
};

TEST_F(DirectoryDev, MissingDirectoryIsMadeWithItsAttributes) {
    Receive(WithInfo("p/q"), "");
    EXPECT_EQ(StatOf("p/q").st_mode, S_IFDIR | 02755U);
    EXPECT_EQ(StatOf("p/q").st_uid, 1234U);
    EXPECT_EQ(StatOf("p/q").st_gid, 2345U);
    EXPECT_EQ(StatOf("p/q").st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(StatOf("p/q").st_mtim.tv_nsec, 7);
    EXPECT_EQ(StatOf("p").st_mode, S_IFDIR | 0700U);
}

TEST_F(DirectoryDev, WithoutAttributesItIsForItsOwnerOnly) {
    Receive(Directory("d"), "");
    EXPECT_EQ(StatOf("d").st_mode, S_IFDIR | 0700U);
}

TEST_F(DirectoryDev, DirectoryThatIsThereKeepsItsContentsAndGetsTheAttributes) {
    for (const bool overwrite : {false, true}) {
        ASSERT_EQ(::chmod((Inside() / "a").c_str(), 0700), 0);
        Receive(WithInfo("a"), "", overwrite);
        EXPECT_EQ(StatOf("a").st_mode, S_IFDIR | 02755U);
        EXPECT_EQ(StatOf("a").st_mtim.tv_sec, 1100000000);
        EXPECT_EQ(tests::ReadFile(Inside() / "a/b/x"), "inside");
    }
}

TEST_F(DirectoryDev, TimesStickWhenTheItemFollowsItsContents) {
    Receive(File("d/one"), "1");
    Receive(File("d/two"), "2");
    Receive(WithInfo("d"), "");
    EXPECT_EQ(StatOf("d").st_mtim.tv_sec, 1100000000);
}

TEST_F(DirectoryDev, WithoutOverwritingAnythingElseThereIsTold) {
    EXPECT_THROW(Make(WithInfo("top")), exc::CAlreadyExistsExc);
    const dev_t devices[] = {Make(WithInfo("file")), Make(WithInfo("link"))};
    tests::WriteFile(Inside() / "file", "late");
    fs::create_directory_symlink(Outside(), Inside() / "link");
    EXPECT_THROW(Make(WithInfo("link")), exc::CAlreadyExistsExc);
    const auto before = tests::SnapshotOf(Top());
    for (const dev_t& dev : devices) {
        try {
            dev->Finish(nullptr);
            FAIL() << dev->GetDisplayName() << " was replaced";
        } catch (const exc::CAlreadyExistsExc& error) {
            EXPECT_EQ(error.what(), "[" + dev->GetDisplayName() + "] exists already.");
        }
    }
    EXPECT_EQ(tests::SnapshotOf(Top()), before);
}

TEST_F(DirectoryDev, OverwritingReplacesAFileAndALinkButNotItsTarget) {
    fs::create_directory_symlink(Outside(), Inside() / "link");
    const auto before = tests::SnapshotOf(Outside());
    for (const char* name : {"top", "link"}) {
        Receive(WithInfo(name), "", true);
        EXPECT_EQ(StatOf(name).st_mode, S_IFDIR | 02755U);
    }
    EXPECT_EQ(tests::SnapshotOf(Outside()), before);
}

TEST_F(DirectoryDev, NothingHappensBeforeTheEnd) {
    const auto before = tests::SnapshotOf(Inside());
    {
        const dev_t dev = Make(WithInfo("new/one"));
        EXPECT_EQ(dev->GetDisplayName(), (Inside() / "new/one").string());
    }
    EXPECT_EQ(tests::SnapshotOf(Inside()), before);
}

TEST_F(DirectoryDev, ContentIsRefused) {
    const dev_t dev = Make(Directory("d"));
    EXPECT_EQ(TextOf([&] { dev->Write(tests::AreaOf("x", 0)); }),
              "An item of kind [directory] takes no content: [" + (Inside() / "d").string() + "].");
}

TEST_F(DirectoryDev, BadNameAndLinkOnTheWayAreRefusedAtOnce) {
    fs::create_directory_symlink(Outside(), Inside() / "link");
    EXPECT_NE(TextOf([&] { Make(Directory("../d")); }).find("is refused"), std::string::npos);
    EXPECT_NE(TextOf([&] { Make(Directory("link/d")); }).find("Too many levels"), std::string::npos);
}

TEST_F(DirectoryDev, FullDiskIsNamed) {
    const dev_t dev = Make(Directory("d"));
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::mkdirat>(ENOSPC);
    EXPECT_EQ(TextOf([&] { dev->Finish(nullptr); }),
              "Failed to create directory [" + (Inside() / "d").string() + "]: No space left on device");
}

TEST_F(DirectoryDev, ADirectorySwappedForALinkBetweenAnyTwoStepsLeadsNowhere) {
    for (const char* swapped : {"a", "a/b"}) {
        for (int step = 0;; ++step) {
            SCOPED_TRACE(std::string(swapped) + " swapped before step " + std::to_string(step));
            StartOver();
            const auto before = tests::SnapshotOf(Outside());
            const tests::step_hook_t hook(step, [&] { PlantLink(swapped, true); });
            TextOf([&] { Receive(WithInfo("a/b"), "", true); });
            EXPECT_EQ(tests::SnapshotOf(Outside()), before);
            if (!hook.HasRun()) {
                EXPECT_GT(step, 4);
                break;
            }
        }
    }
}

TEST_F(DirectoryDev, NoWayThroughLeaksADescriptor) {
    const std::size_t before = tests::CountDescriptors();
    Receive(WithInfo("d/e"), "");
    Receive(WithInfo("a"), "");
    TextOf([&] { Receive(WithInfo("top"), ""); });
    EXPECT_EQ(tests::CountDescriptors(), before);
}

}  // namespace
}  // namespace agent
