#include <filesystem>

#include "agent/staging/report_kind.h"
#include "tests/attack/attack_kit.h"
#include "tests/attack/flipper.h"
#include "tests/support/batch_kit.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using agent::EItemKind;
using agent::item_t;

/// Small items that come many in one message, with names in three places: those of the entries in the token and among
/// the commands, and where they are to go.
class BatchAttack : public served_attack_t {
  protected:
    static batch_maker_t Begin(bool overwrite = true) {
        batch_maker_t batch(guid::guid_t::Create());
        batch.overwrite = overwrite;
        return batch;
    }
    static void AddFile(batch_maker_t& batch, const std::string& path, const std::string& content = "evil") {
        batch.AddFile(path, LoudInfo(util::EFileType::eRegular), content);
    }
    static void AddDirectory(batch_maker_t& batch, const std::string& path) {
        batch.AddDirectory(path, LoudInfo(util::EFileType::eDirectory));
    }
    static void AddLink(batch_maker_t& batch, const std::string& path, const std::string& target) {
        batch.AddFile(path, LoudInfo(util::EFileType::eSymlink), target);
    }
    /// Each kind, on what is there and on what is not.
    static void AddEachKindBelow(batch_maker_t& batch, const std::string& base) {
        AddFile(batch, base + "/secret");
        AddFile(batch, base + "/new");
        AddLink(batch, base + "/link", "evil");
        AddDirectory(batch, base + "/dir");
        AddDirectory(batch, base + "/empty");
        AddFile(batch, base + "/dir/inner");
    }

    std::string Send(const batch_maker_t& batch) {
        return Attacker().PutToken(batch.Token(), BatchFrame(batch.stream), batch.overwrite);
    }
    std::string Commit(const batch_maker_t& batch) {
        item_t commit;
        commit.kind = EItemKind::eCommit;
        commit.copy = batch.copy;
        commit.entry = batch.next;
        return Attacker().Put(commit);
    }
    /// The entries that did not get their names.
    std::size_t Failed() {
        std::size_t count = 0;
        for (const auto& report : Attacker().Reports()) {
            count += report.kind == agent::kEntryFailed ? 1U : 0U;
        }
        return count;
    }
    /// Files and links that wait for a commit.
    std::size_t Staged() const {
        std::size_t count = 0;
        for (const auto& entry : fs::recursive_directory_iterator(Root(".tarn-staging"))) {
            count += entry.path().parent_path().parent_path().filename() == ".tarn-staging" ? 1U : 0U;
        }
        return count;
    }
};

INSTANTIATE_TEST_SUITE_P(Serving, BatchAttack, testing::ValuesIn(AllStands()), NameOfStand);

TEST_P(BatchAttack, FinalNamesThatLeadOutFailTheirEntriesOnly) {
    Serve();
    MakeLink(Root("plant"), Canary().Path());
    MakeLink(Root("up"), "..");
    batch_maker_t batch = Begin();
    for (const std::string& base :
         {Canary().Path(), "../canary"s, "a/../../canary"s, "./../canary"s, "plant"s, "plant/dir/.."s, "up/canary"s,
          "up/root/../canary"s, ".tarn-staging"s, ".TARN-STAGING/partial"s, "MemFs://x"s, "a//b"s, "plant/."s}) {
        AddEachKindBelow(batch, base);
    }
    const std::size_t attacks = batch.items.size();
    AddFile(batch, "good", "content");
    EXPECT_EQ(Send(batch), "");
    EXPECT_EQ(Commit(batch), "");
    EXPECT_EQ(Failed(), attacks);
    EXPECT_EQ(ReadFile(Root("good")), "content");
    EXPECT_EQ(fs::read_symlink(Root("plant")), Canary().Path());
    ExpectUnharmed();
}

TEST_P(BatchAttack, NamesOfEntriesReachNothing) {
    Serve();
    const std::string other = agent::batch::FormatBatchName({guid::guid_t::Create(), 1});
    for (const std::string& name :
         {"../canary/secret"s, Canary() / "secret", ".tarn-staging/lock"s, "secret"s, ""s, "../1"s, other}) {
        batch_maker_t named = Begin();
        AddFile(named, "good");
        AddFile(named, "new");
        named.items.back().firstPath = name;
        EXPECT_NE(Send(named), "") << name;

        batch_maker_t commanded = Begin();
        AddFile(commanded, "good");
        commanded.Add(
            "new", 4,
            CreateFileCommand(name) + WriteCommand(0, "evil") + MetadataCommand(LoudInfo(util::EFileType::eRegular)));
        EXPECT_NE(Send(commanded).find("The commands of a batch are refused."), std::string::npos) << name;

        batch_maker_t written = Begin();
        written.Add("new", 4,
                    CreateFileCommand(written.NextName()) + WriteCommand(0, "evil", name.empty() ? "x" : name) +
                        MetadataCommand(LoudInfo(util::EFileType::eRegular)));
        EXPECT_NE(Send(written).find("The commands of a batch are refused."), std::string::npos) << name;
    }
    EXPECT_EQ(Staged(), 0U);
    EXPECT_FALSE(fs::exists(Root("good")));
    ExpectUnharmed();
}

TEST_P(BatchAttack, NumbersThatRepeatOrLeaveTheGroupAreRefused) {
    Serve();
    batch_maker_t twice = Begin();
    AddFile(twice, "one");
    twice.next = 0;
    AddFile(twice, "two");
    EXPECT_NE(Send(twice).find("is out of order"), std::string::npos);

    batch_maker_t beyond = Begin();
    beyond.next = 1024;
    AddFile(beyond, "one");
    EXPECT_NE(Send(beyond).find("a group has at most [1024] entries"), std::string::npos);

    batch_maker_t many = Begin();
    for (int i = 0; i < 513; ++i) {
        AddDirectory(many, "d" + std::to_string(i));
    }
    EXPECT_NE(Send(many), "") << "such a token is not read to its end";
    EXPECT_EQ(Staged(), 0U);
}

TEST_P(BatchAttack, LengthsThatLieAreRefusedBeforeAnythingIsKept) {
    Serve();
    batch_maker_t batch = Begin();
    AddFile(batch, "one");
    const auto token = [&](std::uint64_t total) {
        return std::make_shared<tarn::batch::CBatchAreaDevToken>(batch.items, total, true, false);
    };
    const std::string frame = BatchFrame(batch.stream);
    for (const std::uint64_t total : {std::uint64_t{0}, std::uint64_t{1} << 30, ~std::uint64_t{0}}) {
        EXPECT_NE(Attacker().PutToken(token(total), frame).find("bytes of commands is refused"), std::string::npos);
    }
    EXPECT_NE(Attacker().PutToken(token(16 << 20), frame).find("A batch unpacks to ["), std::string::npos);
    std::string header = frame;
    header[11] = '\x01';  // 16 MiB more than there are
    EXPECT_NE(Attacker().PutToken(batch.Token(), header).find("A batch unpacks to ["), std::string::npos);
    EXPECT_NE(Attacker().PutToken(batch.Token(), "").find("A batch of [0] bytes is refused"), std::string::npos);
    EXPECT_NE(Attacker().PutToken(batch.Token(), frame, false).find("two things about overwriting"), std::string::npos);
    EXPECT_EQ(Staged(), 0U);
    EXPECT_EQ(Send(batch), "");
    EXPECT_EQ(Commit(batch), "");
    EXPECT_EQ(ReadFile(Root("one")), "evil") << "the server goes on";
}

TEST_P(BatchAttack, LinkInABatchLeadsNoLaterEntryOut) {
    Serve();
    for (const std::string& target : {Canary().Path(), "../canary"s}) {
        batch_maker_t batch = Begin();
        AddLink(batch, "plant", target);
        AddEachKindBelow(batch, "plant");
        EXPECT_EQ(Send(batch), "");
        EXPECT_EQ(Commit(batch), "");
        EXPECT_EQ(Failed(), batch.items.size() - 1);
        EXPECT_EQ(fs::read_symlink(Root("plant")), target);
        ExpectUnharmed();
        fs::remove(Root("plant"));
    }
}

TEST_P(BatchAttack, ParentThatBecomesALinkBeforeTheCommitLeadsNoEntryOut) {
    Serve();
    MakeDirectory(Root("a"));
    MakeDirectory(Root("a/dir"));
    batch_maker_t batch = Begin();
    AddEachKindBelow(batch, "a");
    EXPECT_EQ(Send(batch), "");
    fs::rename(Root("a"), Root("away"));
    MakeLink(Root("a"), Canary().Path());
    EXPECT_EQ(Commit(batch), "");
    EXPECT_EQ(Failed(), batch.items.size());
    EXPECT_EQ(fs::read_symlink(Root("a")), Canary().Path());
    ExpectUnharmed();
}

TEST_P(BatchAttack, ParentThatIsSwappedForALinkAllTheTimeLeadsNoEntryOut) {
    Serve();
    MakeDirectory(Root("a"));
    MakeDirectory(Root("a/dir"));
    MakeLink(Root("b"), Canary().Path());
    flipper_t flipper(Root(), "a", "b");
    RepeatFor(kAttackTime, [&] {
        batch_maker_t batch = Begin();
        AddEachKindBelow(batch, "a");
        Send(batch);
        Commit(batch);
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

TEST_P(BatchAttack, StagingFolderThatIsSwappedForALinkAllTheTimeLeadsNoEntryOut) {
    Serve();
    MakeDirectory(Root("a"));
    MakeLink(Root("trap"), Canary().Path());
    flipper_t flipper(Root(), ".tarn-staging", "trap");
    RepeatFor(kAttackTime, [&] {
        batch_maker_t batch = Begin();
        AddEachKindBelow(batch, "a");
        Send(batch);
        Commit(batch);
    });
    EXPECT_GT(flipper.Stop(), 0U);
    ExpectUnharmed();
}

}  // namespace
}  // namespace tests
