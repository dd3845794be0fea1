#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "mirrowen/util/crc32c.h"
#include "tests/attack/attack_kit.h"
#include "tests/attack/flipper.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using agent::EItemKind;
using agent::item_t;

/// Items that get their names only with the commit of their copy, which may be long after they came; and what an
/// earlier run is said to have left.
class GroupAttack : public served_attack_t {
  protected:
    /// Sends the items as the entries of a group.
    void Send(std::vector<item_t> items) {
        copy_ = guid::guid_t::Create();
        count_ = 0;
        for (item_t& item : items) {
            item.copy = copy_;
            item.deferred = true;
            item.entry = count_;
            if (Attacker().Put(item, item.kind == EItemKind::eFile ? "evil" : "").empty()) {
                ++count_;
            }
        }
    }
    /// Commits what was sent; the server reports the entries that fail, and goes on.
    std::string Commit() {
        item_t commit;
        commit.kind = EItemKind::eCommit;
        commit.copy = copy_;
        commit.entry = count_;
        return Attacker().Put(commit);
    }
    std::uint64_t Count() const { return count_; }

    std::vector<item_t> EachKindBelow(const std::string& base) const {
        return {LoudItem(EItemKind::eFile, base + "/secret"),
                LoudItem(EItemKind::eFile, base + "/new"),
                LoudItem(EItemKind::eLink, base + "/link", "evil"),
                LoudItem(EItemKind::eDirectory, base + "/dir"),
                LoudItem(EItemKind::eDirectory, base + "/empty"),
                LoudItem(EItemKind::eFile, base + "/dir/inner"),
                LoudItem(EItemKind::eHardLink, base + "/hard", "own"),
                LoudItem(EItemKind::eHardLink, base + "/secret", "own"),
                LoudItem(EItemKind::eHardLink, "stolen", base + "/secret")};
    }

  private:
    guid::guid_t copy_;
    std::uint64_t count_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Serving, GroupAttack, testing::ValuesIn(AllStands()), NameOfStand);

TEST_P(GroupAttack, ParentThatBecomesALinkBeforeTheCommitLeadsNoEntryOut) {
    MakeFile(Root("own"), "own");
    Serve();
    MakeDirectory(Root("a"));
    MakeDirectory(Root("a/dir"));
    Send(EachKindBelow("a"));
    EXPECT_EQ(Count(), 9U);
    fs::rename(Root("a"), Root("away"));
    MakeLink(Root("a"), Canary().Path());
    EXPECT_EQ(Commit(), "") << "each entry fails on its own";
    EXPECT_FALSE(fs::exists(Root("stolen")));
    EXPECT_EQ(fs::read_symlink(Root("a")), Canary().Path());
    ExpectUnharmed();
}

TEST_P(GroupAttack, LinkInAGroupLeadsNoLaterEntryOut) {
    MakeFile(Root("own"), "own");
    Serve();
    for (const std::string& target : {Canary().Path(), std::string("../canary")}) {
        std::vector<item_t> items = EachKindBelow("plant");
        items.insert(items.begin(), LoudItem(EItemKind::eLink, "plant", target));
        Send(items);
        EXPECT_EQ(Count(), items.size());
        EXPECT_EQ(Commit(), "");
        EXPECT_EQ(fs::read_symlink(Root("plant")), target);
        EXPECT_FALSE(fs::exists(Root("stolen")));
        ExpectUnharmed();
        fs::remove(Root("plant"));
    }
}

TEST_P(GroupAttack, ParentThatIsSwappedForALinkAllTheTimeLeadsNoEntryOut) {
    MakeFile(Root("own"), "own");
    Serve();
    MakeDirectory(Root("a"));
    MakeDirectory(Root("a/dir"));
    MakeLink(Root("b"), Canary().Path());
    flipper_t flipper(Root(), "a", "b");
    RepeatFor(kAttackTime, [&] {
        Send(EachKindBelow("a"));
        Commit();
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(GroupAttack, StagingFolderThatIsSwappedForALinkAllTheTimeLeadsNoEntryOut) {
    MakeFile(Root("own"), "own");
    Serve();
    MakeDirectory(Root("a"));
    MakeDirectory(Root("a/dir"));
    MakeLink(Root("trap"), Canary().Path());
    flipper_t flipper(Root(), ".tarn-staging", "trap");
    RepeatFor(kAttackTime, [&] {
        Send(EachKindBelow("a"));
        Commit();
        item_t kept = LoudItem(EItemKind::eFile, "kept");
        kept.resumable = true;
        Attacker().Put(kept, "evil");
    });
    EXPECT_GT(flipper.Stop(), 0U);
    EXPECT_EQ(ReadFile(Root("kept")), "evil");
    ExpectUnharmed();
}

TEST_P(GroupAttack, ResumableItemReachesNothingByItsName) {
    Serve();
    MakeLink(Root("plant"), Canary().Path());
    for (const std::string& name : {Canary() / "secret", std::string("../canary/secret"), std::string("plant/secret"),
                                    std::string(".tarn-staging/partial/x"), std::string("plant/new")}) {
        item_t item = LoudItem(EItemKind::eFile, name);
        item.resumable = true;
        EXPECT_NE(Attacker().Put(item, "evil"), "") << name;
        item.startOffset = 3;
        EXPECT_NE(Attacker().Put(item, "evil"), "") << name;
    }
    ExpectUnharmed();
}

/// A line of the staging folder's journal, with its checksum.
std::string JournalLine(const std::string& text) {
    char check[9];
    std::snprintf(check, sizeof check, "%08x", util::crc32c(0, text.data(), text.size()));
    return std::string(check) + " " + text + "\n";
}

TEST_P(GroupAttack, ForgedJournalClearsNothingOutsideTheStagingFolder) {
    MakeFile(Root("own"), "own");
    MakeDirectory(Root(".tarn-staging"));
    fs::permissions(Root(".tarn-staging"), fs::perms::owner_all);
    const std::string known(32, 'a');
    MakeLink(Root(".tarn-staging/" + known), Canary().Path());
    MakeLink(Root(".tarn-staging/partial"), Canary() / "dir");
    std::string journal;
    for (const std::string word : {"run ", "partial "}) {
        for (const std::string& name : {known, std::string("../own"), std::string("../../canary"), Canary().Path(),
                                        std::string(".."), std::string("."), std::string("../../canary/secret"),
                                        known + "/secret", std::string("inner"), std::string("../../canary/dir")}) {
            journal += JournalLine(word + name);
        }
    }
    MakeFile(Root(".tarn-staging/journal"), journal);
    try {
        Serve();
    } catch (const std::exception&) {  // a folder like this may as well be refused
    }
    EXPECT_EQ(ReadFile(Root("own")), "own");
    ExpectUnharmed();
}

}  // namespace
}  // namespace tests
