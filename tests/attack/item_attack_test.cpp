#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gmock/gmock.h>

#include "tests/attack/attack_kit.h"
#include "tests/attack/flipper.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using agent::EItemKind;
using agent::item_t;
using namespace std::string_literals;

/// Items that a hostile peer sends, alone or together with somebody who may write below the root.
class ItemAttack : public served_attack_t {
  protected:
    /// An item of each kind for one name; a hard link's first name is a file of ours.
    std::vector<item_t> ItemsFor(const std::string& name) const {
        return {LoudItem(EItemKind::eFile, name), LoudItem(EItemKind::eDirectory, name),
                LoudItem(EItemKind::eLink, name, "own"), LoudItem(EItemKind::eHardLink, name, "own")};
    }

    /// Sends each kind for the name, with and without overwriting.
    void PutAll(const std::string& name) {
        for (const item_t& item : ItemsFor(name)) {
            for (const bool overwrite : {false, true}) {
                Attacker().Put(item, item.kind == EItemKind::eFile ? "evil" : "", overwrite);
            }
        }
    }

    /// As PutAll; none may succeed.
    void ExpectRefused(const std::string& name) {
        for (const item_t& item : ItemsFor(name)) {
            for (const bool overwrite : {false, true}) {
                SCOPED_TRACE(testing::Message() << NameOfKind(item.kind) << " " << name << " " << overwrite);
                EXPECT_NE(Attacker().Put(item, item.kind == EItemKind::eFile ? "evil" : "", overwrite), "");
            }
        }
    }

    /// Names of the canary's parts below `base`, and of what is not there yet.
    static std::vector<std::string> NamesBelow(const std::string& base) {
        std::vector<std::string> names;
        for (const char* const part : {"secret", "link", "dir", "empty", "new", "dir/inner", "dir/new", "new/new"}) {
            names.push_back(base + "/" + part);
        }
        return names;
    }

    /// When code that replaced things has left no link under either name, there is one under the second again.
    void PlantAgain(const std::string& one, const std::string& other, const std::string& target) const {
        if (!fs::is_symlink(fs::symlink_status(Root(one))) && !fs::is_symlink(fs::symlink_status(Root(other)))) {
            MakeLink(Root("fresh"), target);
            ASSERT_TRUE(::rename(Root("fresh").c_str(), Root(other).c_str()) == 0 ||
                        ::rename(Root("fresh").c_str(), Root(one).c_str()) == 0);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Serving, ItemAttack, testing::ValuesIn(AllStands()), NameOfStand);

TEST_P(ItemAttack, LinksThatThePeerPlantedLeadNoItemOut) {
    Serve();
    ASSERT_EQ(Attacker().Put(LoudItem(EItemKind::eFile, "own"), "own"), "");
    ASSERT_EQ(Attacker().Put(LoudItem(EItemKind::eDirectory, "deep")), "");
    const std::vector<std::pair<std::string, std::string>> plants = {
        {"absolute", Canary().Path()}, {"relative", "../canary"},     {"up", ".."},  {"one", "two"},
        {"two", "../canary"},          {"deep/link", "../../canary"}, {"root", "/"}, {"loop", "loop"}};
    for (const bool asItem : {true, false}) {
        for (const auto& [name, target] : plants) {
            ASSERT_EQ(
                asItem ? Attacker().Put(LoudItem(EItemKind::eLink, name, target)) : Attacker().SendLink(name, target),
                "");
            ASSERT_EQ(fs::read_symlink(Root(name)), target);
        }
        for (const std::string base : {"absolute", "relative", "up/canary", "one", "two", "deep/link", "loop"}) {
            for (const std::string& name : NamesBelow(base)) {
                ExpectRefused(name);
            }
        }
        ExpectRefused("root" + (Canary() / "secret"));
        ExpectUnharmed();
    }
}

TEST_P(ItemAttack, LinkInAnItemsPlaceIsReplacedOrKeptButNeverFollowed) {
    Serve();
    ASSERT_EQ(Attacker().Put(LoudItem(EItemKind::eFile, "own"), "own"), "");
    for (const std::string target : {"secret", "dir", "empty", "link", "new"}) {
        for (const item_t& item : ItemsFor("plant")) {
            SCOPED_TRACE(testing::Message() << NameOfKind(item.kind) << " on a link to " << target);
            fs::remove_all(Root("plant"));
            MakeLink(Root("plant"), Canary() / target);
            EXPECT_NE(Attacker().Put(item, "", false), "");
            EXPECT_TRUE(fs::is_symlink(Root("plant")));
            Attacker().Put(item, "", true);
            ExpectUnharmed();
        }
    }
}

TEST_P(ItemAttack, HardLinkToAPlaceOutsideIsNotMade) {
    Serve();
    MakeFile(Root("own"), "own");
    MakeLink(Root("plant"), Canary().Path());
    MakeLink(Root("file"), Canary() / "secret");
    for (const std::string& first :
         {Canary() / "secret", "../canary/secret"s, "plant/secret"s, "plant/dir"s, "plant"s + Canary().Path(),
          "own/../../canary/secret"s, "./own"s, ".tarn-staging/lock"s, ".tarn-staging"s}) {
        EXPECT_NE(Attacker().Put(LoudItem(EItemKind::eHardLink, "second", first)), "") << first;
        EXPECT_FALSE(fs::exists(fs::symlink_status(Root("second")))) << first;
    }
    // A link's own second name, if such a thing is made at all.
    Attacker().Put(LoudItem(EItemKind::eHardLink, "second", "file"));
    EXPECT_EQ(Canary().Damage(), "");
}

TEST_P(ItemAttack, FileThatIsAlsoOutsideIsReplacedAndNotWrittenTo) {
    Serve();
    MakeFile(Root("own"), "own");
    for (const item_t& item : ItemsFor("shared")) {
        SCOPED_TRACE(NameOfKind(item.kind));
        fs::remove_all(Root("shared"));
        ASSERT_EQ(::link((Canary() / "secret").c_str(), Root("shared").c_str()), 0);
        EXPECT_NE(Attacker().Put(item, "", false), "");
        Attacker().Put(item, "", true);
        EXPECT_EQ(Canary().Damage(ECanaryView::eWithoutLinkCount), "");
    }
    fs::remove_all(Root("shared"));
    for (const bool withInfo : {false, true}) {
        ASSERT_EQ(::link((Canary() / "secret").c_str(), Root("shared").c_str()), 0);
        EXPECT_EQ(withInfo ? Attacker().SendFile("shared", "evil", LoudInfo(util::EFileType::eRegular))
                           : Attacker().SendFile("shared", "evil"),
                  "");
        EXPECT_EQ(ReadFile(Root("shared")), "evil");
        fs::remove(Root("shared"));
    }
    ExpectUnharmed(ECanaryView::eWithoutLinkCount);
}

TEST_P(ItemAttack, ParentThatIsSwappedForALinkAllTheTimeLeadsNoItemOut) {
    Serve();
    MakeFile(Root("own"), "own");
    MakeDirectory(Root("a"));
    MakeDirectory(Root("a/dir"));
    MakeLink(Root("b"), Canary().Path());
    flipper_t flipper(Root(), "a", "b");
    const auto names = NamesBelow("a");
    std::size_t next = 0;
    RepeatFor(kAttackTime, [&] { PutAll(names[next++ % names.size()]); });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(ItemAttack, AttributesBesideAnItemAreRefused) {
    Serve();
    item_t item = LoudItem(EItemKind::eFile, "thing");
    item.info.mode = 0600;
    item.info.modificationTime = {1000000000, 0};
    EXPECT_NE(Attacker().PutWithInfo(item, "x", LoudInfo(util::EFileType::eRegular)), "");
    struct stat found {};
    ASSERT_EQ(::lstat(Root("thing").c_str(), &found), 0);
    // The item's list gives its group more than the mode says; others are told apart by the mode alone.
    EXPECT_EQ(found.st_mode & 0007U, 0U);
    EXPECT_EQ(found.st_mtim.tv_sec, 1000000000);
}

TEST_P(ItemAttack, AttributesBesideAnItemReachNothingThroughASwappedParent) {
    Serve();
    MakeDirectory(Root("a"));
    MakeLink(Root("b"), Canary().Path());
    flipper_t flipper(Root(), "a", "b");
    RepeatFor(kAttackTime, [&] {
        Attacker().PutWithInfo(LoudItem(EItemKind::eFile, "a/secret"), "x", LoudInfo(util::EFileType::eRegular));
        Attacker().PutWithInfo(LoudItem(EItemKind::eDirectory, "a/dir"), "", LoudInfo(util::EFileType::eDirectory));
        Attacker().PutWithInfo(LoudItem(EItemKind::eLink, "a/link", "x"), "", LoudInfo(util::EFileType::eSymlink));
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(ItemAttack, FileThatIsSwappedForALinkAllTheTimeIsNotWrittenThroughIt) {
    Serve();
    MakeFile(Root("own"), "own");
    MakeFile(Root("x"), "x");
    MakeLink(Root("y"), Canary() / "secret");
    flipper_t flipper(Root(), "x", "y");
    RepeatFor(kAttackTime, [&] {
        PlantAgain("x", "y", Canary() / "secret");
        Attacker().Put(LoudItem(EItemKind::eFile, "x"), "evil");
        Attacker().Put(LoudItem(EItemKind::eHardLink, "x", "own"));
        Attacker().Put(LoudItem(EItemKind::eLink, "x", "own"));
        Attacker().Put(LoudItem(EItemKind::eHardLink, "again", "x"));
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(ItemAttack, DirectoryThatIsSwappedForALinkAllTheTimeGivesItsTargetNoAttributes) {
    Serve();
    MakeDirectory(Root("d"));
    MakeLink(Root("e"), Canary() / "dir");
    flipper_t flipper(Root(), "d", "e");
    bool overwrite = false;
    RepeatFor(kAttackTime, [&] {
        overwrite = !overwrite;
        Attacker().Put(LoudItem(EItemKind::eDirectory, "d"), "", overwrite);
        if (!fs::exists(fs::symlink_status(Root("e")))) {
            MakeLink(Root("e"), Canary() / "dir");
        }
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(ItemAttack, StagingFolderThatIsSwappedForALinkAllTheTimeLeadsNoItemOut) {
    Serve();
    MakeFile(Root("own"), "own");
    MakeLink(Root("trap"), Canary().Path());
    flipper_t flipper(Root(), ".tarn-staging", "trap");
    std::uint64_t arrived = 0;
    RepeatFor(kAttackTime, [&] {
        for (const item_t& item : ItemsFor("thing")) {
            fs::remove_all(Root("thing"));
            arrived += Attacker().Put(item, item.kind == EItemKind::eFile ? "evil" : "").empty() ? 1 : 0;
        }
    });
    EXPECT_GT(flipper.Stop(), 0U);
    EXPECT_GT(arrived, 0U) << "the folder is held open, so where its name leads is nothing to the items";
    ExpectUnharmed();
}

TEST_P(ItemAttack, PipeInAnItemsPlaceHoldsNobodyUp) {
    Serve();
    MakeFile(Root("own"), "own");
    ASSERT_EQ(::mkfifo(Root("pipe").c_str(), 0666), 0);
    ExpectRefused("pipe/new");
    for (const item_t& item : ItemsFor("pipe")) {
        EXPECT_NE(Attacker().Put(item, "", false), "");
    }
    EXPECT_EQ(Attacker().Put(LoudItem(EItemKind::eFile, "pipe"), "content"), "");
    EXPECT_EQ(ReadFile(Root("pipe")), "content");
}

TEST_P(ItemAttack, ControlBytesOfAPeerReachNoLineOfTheServer) {
    Serve();
    const std::string rude =
        "\x1b[2J\nsession 127.0.0.1:1 0 ms ended\r\x07\x7f\x01 \xc2\x9b"
        "1m \x9b \xff";
    MakeLink(Root("plant"), "..");
    for (const std::string& name : {"../" + rude, "plant/" + rude, ".tarn-staging/" + rude}) {
        PutAll(name);
        Attacker().SendFile(name, "evil");
        Attacker().SendLink("/" + name, rude);
        Attacker().Ask("/" + name);
        Attacker().Put(LoudItem(EItemKind::eHardLink, "x", name));
    }
    std::string lines = Server().Errors();
    for (int session = 0; session < 3; ++session) {
        lines += Server().WaitSession() + "\n";
    }
    EXPECT_NE(lines.find("x1b"), std::string::npos) << "no line has the name: " << lines;
    for (const char* const bytes :
         {"\x1b", "\r", "\x07", "\x7f", "\x01", "\nsession 127.0.0.1:1 ", "\xc2\x9b", "\x9b", "\xff"}) {
        EXPECT_EQ(lines.find(bytes), std::string::npos) << lines;
    }
}

}  // namespace
}  // namespace tests
