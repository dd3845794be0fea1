#include <sys/stat.h>

#include <filesystem>

#include "agent/verify/verify.h"
#include "tests/attack/attack_kit.h"
#include "tests/attack/flipper.h"
#include "tests/edge/edge_kit.h"

namespace tests {
namespace {

namespace fs = std::filesystem;

/// Copies from and to places in which somebody else may rename things.
class CopyAttack : public attack_fixture_t {
  protected:
    CopyAttack() {
        options_.recursive = true;
        options_.overwrite = true;
        for (const char* const name : {"source/tree", "source/tree/a", "source/tree/a/dir", "source/tree/z"}) {
            MakeDirectory(Place(name));
        }
        for (const char* const name : {"secret", "dir/inner", "dir/file"}) {
            MakeFile(Place("source/tree/a/") + name, "inside");
        }
    }

    std::string Tree(const std::string& name) const { return Place("source/tree/" + name); }

    /// Copies the tree again and again, each time to a place of its own, and looks whether anything came from outside.
    void CopyUnderAttack() {
        RepeatFor(kAttackTime, [&] {
            CopyAll({Place("source/tree")}, Place("out"), options_);
            EXPECT_EQ(Canary().Leaks(Place("out")), "");
            fs::remove_all(Place("out"));
        });
        ExpectUnharmed();
    }

    agent::copy::copy_options_t options_;
};

TEST_F(CopyAttack, SourceDirectoryThatIsSwappedForALinkAllTheTimeIsNotReadThroughIt) {
    MakeLink(Tree("b"), Canary().Path());
    flipper_t flipper(Place("source/tree"), "a", "b");
    CopyUnderAttack();
    EXPECT_GT(flipper.Stop(), 0U);
}

TEST_F(CopyAttack, DirectoryInsideTheSourceThatIsSwappedForALinkAllTheTimeIsNotReadThroughIt) {
    MakeLink(Tree("a/link"), Canary() / "dir");
    flipper_t flipper(Tree("a"), "dir", "link");
    CopyUnderAttack();
    EXPECT_GT(flipper.Stop(), 0U);
}

TEST_F(CopyAttack, SourceFileThatIsSwappedForALinkAllTheTimeIsNotReadThroughIt) {
    MakeLink(Tree("a/link"), Canary() / "secret");
    flipper_t flipper(Tree("a"), "secret", "link");
    CopyUnderAttack();
    EXPECT_GT(flipper.Stop(), 0U);
}

TEST_F(CopyAttack, SourceFileThatIsSwappedForAPipeAllTheTimeHoldsNobodyUp) {
    ASSERT_EQ(::mkfifo(Tree("a/pipe").c_str(), 0666), 0);
    flipper_t flipper(Tree("a"), "secret", "pipe");
    CopyUnderAttack();
    EXPECT_GT(flipper.Stop(), 0U);
}

TEST_F(CopyAttack, TargetDirectoryThatIsSwappedForALinkAllTheTimeLeadsNothingOut) {
    fs::create_directories(Place("out/tree/a"));
    MakeLink(Place("out/tree/b"), Canary().Path());
    flipper_t flipper(Place("out/tree"), "a", "b");
    RepeatFor(kAttackTime, [&] {
        CopyAll({Place("source/tree")}, Place("out"), options_);
        // A directory that has replaced the link is no trap any more.
        if (!fs::exists(fs::symlink_status(Place("out/tree/b")))) {
            MakeLink(Place("out/tree/b"), Canary().Path());
        }
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_F(CopyAttack, ComparedDirectoryThatIsSwappedForALinkAllTheTimeIsNotReadThroughIt) {
    CopyAll({Place("source/tree")}, Place("out"), options_);
    MakeLink(Tree("b"), Canary().Path());
    MakeLink(Place("out/b"), Canary().Path());
    flipper_t first(Place("source/tree"), "a", "b");
    flipper_t second(Place("out"), "a", "b");
    RepeatFor(kAttackTime, [&] {
        try {
            agent::verify::Verify(Place("source/tree"), Place("out"), {});
        } catch (const std::exception&) {  // what is swapped away cannot always be compared
        }
    });
    EXPECT_GT(first.Stop() + second.Stop(), 0U);
    ExpectUnharmed();
}

/// Trees read back from a server that changes them, or lies about them, while they are read.
class ReadBackAttack : public served_attack_t {
  protected:
    ReadBackAttack() {
        options_.recursive = true;
        options_.overwrite = true;
        for (const char* const name : {"tree", "tree/a", "tree/a/dir", "tree/a/empty"}) {
            MakeDirectory(Root(name));
        }
        for (const char* const name : {"tree/a/secret", "tree/a/dir/inner", "tree/a/dir/file"}) {
            MakeFile(Root(name), "evil");
        }
        MakeLink(Root("tree/b"), Canary().Path());
        MakeDirectory(Place("out"));
    }

    copy_outcome_t ReadBack() { return CopyAll({Remote(Server().Port(), "tree")}, Place("out"), options_); }

    agent::copy::copy_options_t options_;
};

INSTANTIATE_TEST_SUITE_P(Serving, ReadBackAttack, testing::ValuesIn(ConfinedStands()), NameOfStand);

TEST_P(ReadBackAttack, LinkOfTheServersIsReplacedAndNotWrittenThrough) {
    Serve();
    fs::rename(Root("tree/a"), Root("kept"));
    MakeLink(Root("tree/a"), Canary().Path());
    EXPECT_EQ(ReadBack().Failure(), "");
    EXPECT_EQ(fs::read_symlink(Place("out/tree/a")), Canary().Path());
    fs::remove(Root("tree/a"));
    fs::rename(Root("kept"), Root("tree/a"));
    EXPECT_EQ(ReadBack().Failure(), "");
    EXPECT_EQ(ReadFile(Place("out/tree/a/secret")), "evil");
    EXPECT_FALSE(fs::is_symlink(Place("out/tree/a")));
    ExpectUnharmed();
}

TEST_P(ReadBackAttack, TreeThatChangesAllTheTimeLeadsNothingOut) {
    Serve();
    flipper_t flipper(Root("tree"), "a", "b");
    RepeatFor(kAttackTime, [&] {
        ReadBack();
        EXPECT_EQ(Canary().Leaks(Place("out")), "");
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

}  // namespace
}  // namespace tests
