#include "agent/copy/copier.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "agent/copy/resumption.h"
#include "tests/support/copier_fixture.h"

namespace agent::copy {
namespace {

namespace fs = std::filesystem;
using tests::texts_t;

/// What a copy decides is the same whether or not small items travel in batches.
class Copier : public tests::copier_fixture_t, public ::testing::WithParamInterface<bool> {
  protected:
    using copier_fixture_t::Run;
    copy_report_t Run() { return Run({.groups = true, .batches = GetParam()}); }
};
INSTANTIATE_TEST_SUITE_P(All, Copier, ::testing::Bool(),
                         [](const auto& param) { return param.param ? "WithBatches" : "WithoutBatches"; });

using CopierOneByOne = tests::copier_fixture_t;

TEST_P(Copier, ItemsOfATreeAreNumberedAndCommittedTogether) {
    Write("top/a");
    Write("top/b");
    const copy_report_t report = Run();
    EXPECT_EQ(sink.Put(), (texts_t{"file top/a", "file top/b", "directory top"}));
    for (std::size_t i = 0; i < sink.puts.size(); ++i) {
        EXPECT_TRUE(sink.puts[i].item.deferred);
        EXPECT_EQ(sink.puts[i].item.entry, i);
        EXPECT_EQ(sink.puts[i].item.copy, sink.puts[0].item.copy);
        EXPECT_FALSE(sink.puts[i].item.unsynced);
    }
    EXPECT_EQ(sink.commits, std::vector<std::uint64_t>{3});
    EXPECT_EQ(report.files, 2u);
    EXPECT_EQ(report.directories, 1u);
    EXPECT_EQ(observer.done, 3);
}

TEST_F(CopierOneByOne, ItemThatFailedGivesItsNumberToTheNext) {
    Write("top/a");
    Write("top/b");
    Write("top/c");
    sink.failing = {"top/b"};
    const copy_report_t report = Run({.groups = true});
    EXPECT_EQ(sink.puts[1].item.path, "top/c");
    EXPECT_EQ(sink.puts[1].item.entry, 1u);
    EXPECT_EQ(sink.commits, std::vector<std::uint64_t>{3});
    EXPECT_EQ(Failed(report), texts_t{"b: Cannot put [top/b]."});
    EXPECT_EQ(report.files, 2u);
}

TEST_P(Copier, GroupIsCommittedAsSoonAsItIsFullAndTheNextBeginsAtZero) {
    for (std::size_t i = 0; i <= group_keeper_t::kMaxItems; ++i) {
        Write("top/" + std::to_string(1000 + i));
    }
    EXPECT_EQ(Run().files, group_keeper_t::kMaxItems + 1);
    EXPECT_EQ(sink.commits, (std::vector<std::uint64_t>{512, 2}));
    EXPECT_EQ(sink.puts[512].item.entry, 0u);
}

TEST_P(Copier, ItemsOfAGroupThatCouldNotBeCommittedAllFailWithTheCause) {
    Write("top/a");
    sink.commitFault = "No space left.";
    const copy_report_t report = Run();
    EXPECT_EQ(Failed(report), (texts_t{"a: No space left.", "top: No space left."}));
    EXPECT_EQ(report.files + report.directories, 0u);
    EXPECT_EQ(observer.done, 0);
}

TEST_P(Copier, LostEntryFailsAloneAndWarningsOfTheCommitAreTold) {
    Write("top/a");
    Write("top/b");
    sink.lost = {{1, "is a directory"}, {99, "nonsense"}};
    sink.commitWarnings = {"owner"};
    const copy_report_t report = Run();
    EXPECT_EQ(Failed(report), texts_t{"b: is a directory"});
    EXPECT_EQ(report.files, 1u);
    EXPECT_EQ(report.warnings.size(), 1u);
}

TEST_F(CopierOneByOne, WithoutGroupsNothingIsDeferred) {
    Write("top/a");
    options.durability = EDurability::eNone;
    EXPECT_EQ(Run({}).files, 1u);
    EXPECT_FALSE(sink.puts[0].item.deferred);
    EXPECT_TRUE(sink.puts[0].item.unsynced);
    EXPECT_TRUE(sink.commits.empty());
}

TEST_P(Copier, LaterNamesOfAFileBecomeHardLinksToTheFirst) {
    Write("top/a");
    Link("top/a", "top/b");
    Link("top/a", "top/c");
    Write("top/d");
    const copy_report_t report = Run();
    EXPECT_EQ(sink.Put(), (texts_t{"file top/a", "hard link top/b -> top/a", "hard link top/c -> top/a", "file top/d",
                                   "directory top"}));
    EXPECT_EQ(report.files, 2u);
    EXPECT_EQ(report.hardLinks, 2u);
}

TEST_F(CopierOneByOne, NameAfterAFailedFirstIsTheFirst) {
    Write("top/a");
    Link("top/a", "top/b");
    Link("top/a", "top/c");
    sink.failing = {"top/a"};
    Run({.groups = true});
    EXPECT_EQ(sink.Put(), (texts_t{"file top/b", "hard link top/c -> top/b", "directory top"}));
}

TEST_P(Copier, WhereNamesCannotBeLinkedTheFileIsSentAgainWithAWarning) {
    Write("top/a");
    Link("top/a", "top/b");
    sink.refusesHardLinks = true;
    const copy_report_t report = Run();
    EXPECT_EQ(sink.Put(), (texts_t{"file top/a", "file top/b", "directory top"}));
    EXPECT_FALSE(sink.puts[1].item.deferred);
    ASSERT_EQ(report.warnings.size(), 1u);
    EXPECT_NE(report.warnings[0].text.find("becomes a file of its own: Cannot put [top/b]."), std::string::npos);
    EXPECT_EQ(report.files, 2u);
    EXPECT_TRUE(report.failed.empty());
}

TEST_P(Copier, NameWhoseFirstWasLostInItsGroupIsSentAsAFile) {
    Write("top/a");
    Link("top/a", "top/b");
    sink.lost = {{0, "gone"}, {1, "first is missing"}};
    const copy_report_t report = Run();
    EXPECT_EQ(Failed(report), texts_t{"a: gone"});
    EXPECT_EQ(sink.Put().back(), "file top/b");
    EXPECT_EQ(report.files, 1u);
}

TEST_P(Copier, UnchangedItemsAreLeftAlone) {
    options.overwrite = true;
    fs::create_directory(At("top/d"));
    Write("top/a", "12345");
    fs::create_symlink("a", At("top/l"));
    for (const char* name : {"top", "top/a", "top/l", "top/d"}) {
        LayDown(name);
    }
    const copy_report_t report = Run();
    EXPECT_TRUE(sink.puts.empty());
    EXPECT_TRUE(sink.commits.empty());
    EXPECT_EQ(sink.questions, 1);
    EXPECT_EQ(report.unchanged, 4u);
    EXPECT_EQ(observer.done, 4);
    EXPECT_EQ(observer.spared, 5u);
}

TEST_P(Copier, DirectoryIntoWhichSomethingWasPutIsSentAgainAndNotTheOneAboveIt) {
    options.overwrite = true;
    fs::create_directories(At("top/d"));
    Write("top/d/a");
    Write("top/d/b");
    for (const char* name : {"top", "top/d", "top/d/a"}) {
        LayDown(name);
    }
    const copy_report_t report = Run();
    EXPECT_EQ(sink.Put(), (texts_t{"file top/d/b", "directory top/d"}));
    EXPECT_EQ(report.unchanged, 2u);
}

TEST_P(Copier, NewDirectoryChangesTheOneAboveIt) {
    options.overwrite = true;
    fs::create_directories(At("top/d"));
    LayDown("top");
    Run();
    EXPECT_EQ(sink.Put(), (texts_t{"directory top/d", "directory top"}));
}

TEST_P(Copier, ForceAsksNothingAndSparesNothing) {
    options.overwrite = options.force = true;
    Write("top/a");
    LayDown("top");
    LayDown("top/a");
    EXPECT_EQ(Run().unchanged, 0u);
    EXPECT_EQ(sink.questions, 0);
    EXPECT_EQ(sink.puts.size(), 2u);
}

TEST_P(Copier, WithoutOverwriteNothingIsAskedAndNothingSpared) {
    Write("top/a");
    LayDown("top");
    LayDown("top/a");
    EXPECT_EQ(Run().unchanged, 0u);
    EXPECT_EQ(sink.questions, 0);
    EXPECT_EQ(sink.puts.size(), 2u);
}

TEST_P(Copier, FileInTheWayOfADirectoryGoesAtOnce) {
    options.overwrite = true;
    fs::create_directories(At("top/d"));
    Write("top/d/a");
    LayDown("top");
    sink.there["top/d"] = object_brief_t{};
    const copy_report_t report = Run();
    EXPECT_EQ(sink.Put(), (texts_t{"directory top/d", "file top/d/a", "directory top/d", "directory top"}));
    EXPECT_FALSE(sink.puts[0].item.deferred);
    EXPECT_EQ(report.directories, 2u);
}

TEST_P(Copier, UnchangedNamesOfOneFileHaveToBeOneFileThereToo) {
    options.overwrite = true;
    Write("top/a");
    Link("top/a", "top/b");
    LayDown("top/a");
    LayDown("top/b");
    EXPECT_EQ(Run().unchanged, 2u);
    sink.there["top/b"].inode += 1;
    Run();
    EXPECT_EQ(sink.Put().at(1), "hard link top/b -> top/a");
}

TEST_P(Copier, OneBadNameDoesNotSpoilTheQuestionForTheOthers) {
    options.overwrite = true;
    Write("top/a");
    Write("top/b");
    LayDown("top/a");
    sink.bad = {"top/b"};
    const copy_report_t report = Run();
    EXPECT_EQ(report.unchanged, 1u);
    EXPECT_EQ(sink.Put(), (texts_t{"file top/b", "directory top"}));
}

TEST_P(Copier, ChecksumSparesAFileWithTheSameContentWhateverItsTime) {
    options.overwrite = options.checksum = true;
    Write("top/a", "aaa");
    Write("top/b", "bbb");
    for (const char* name : {"top/a", "top/b"}) {
        LayDown(name);
        sink.there[name].modificationTime = {1, 2};
    }
    sink.digests["top/a"] = DigestOf("aaa");
    sink.digests["top/b"] = DigestOf("xxx");
    const copy_report_t report = Run();
    EXPECT_EQ(report.unchanged, 1u);
    EXPECT_EQ(sink.Put(), (texts_t{"file top/b", "directory top"}));
}

TEST_P(Copier, VerifiedFileThatReadsBackDifferentlyFails) {
    options.verify = true;
    Write("top/a", "aaa");
    Write("top/b", "bbb");
    sink.digests["top/a"] = DigestOf("aaa");
    sink.digests["top/b"] = DigestOf("xxx");
    const copy_report_t report = Run();
    EXPECT_EQ(Failed(report), texts_t{"b: [fake:top/b] was written, but reads back differently."});
    EXPECT_EQ(report.files, 1u);
}

TEST_P(Copier, FileOfWhichTheBeginningIsKeptGoesOnBehindIt) {
    options.verify = true;
    const std::string content = std::string(kResumableBytes, 'x') + "end";
    Write("top/a", content);
    const std::uint64_t kept = 3000000;
    sink.partials["top/a"] = {kept, DigestOf(content.substr(0, kept)).digest};
    sink.digests["top/a"] = DigestOf(content);
    const copy_report_t report = Run();
    EXPECT_TRUE(sink.puts[0].item.resumable);
    EXPECT_EQ(sink.puts[0].item.startOffset, kept);
    EXPECT_EQ(report.resumedBytes, kept);
    EXPECT_TRUE(report.failed.empty()) << "the digest is that of the whole file";
}

TEST_P(Copier, FileWhoseKeptBytesCannotBeAskedForIsSentWhole) {
    const std::string content(kResumableBytes, 'x');
    Write("top/a", content);
    sink.refusesPartials = true;
    sink.digests["top/a"] = DigestOf(content);
    const copy_report_t report = Run();
    EXPECT_EQ(sink.puts[0].item.startOffset, 0u);
    EXPECT_TRUE(report.failed.empty());
}

TEST_P(Copier, FileOfWhichSomethingElseIsKeptBeginsAnew) {
    options.verify = true;
    const std::string content(kResumableBytes, 'x');
    Write("top/a", content);
    sink.partials["top/a"] = {5, DigestOf("other").digest};
    sink.digests["top/a"] = DigestOf(content);
    const copy_report_t report = Run();
    EXPECT_EQ(sink.puts[0].item.startOffset, 0u);
    EXPECT_EQ(report.resumedBytes, 0u);
    EXPECT_TRUE(report.failed.empty());
}

TEST_P(Copier, SmallFileIsNotKeptAndNeitherIsOneThatNobodyWantsKept) {
    Write("top/a", "small");
    Write("top/b", std::string(kResumableBytes, 'x'));
    sink.partials["top/a"] = {1, DigestOf("s").digest};
    options.keepPartial = std::chrono::seconds(0);
    sink.partials["top/b"] = {1, DigestOf("x").digest};
    Run();
    for (const fake_sink_t::put_t& put : sink.puts) {
        EXPECT_FALSE(put.item.resumable);
        EXPECT_EQ(put.item.startOffset, 0u);
    }
}

TEST_P(Copier, StrictMakesAWarningAFailureOfItsItem) {
    Write("top/a");
    Write("top/b");
    sink.warned = {"top/a"};
    const copy_report_t mild = Run();
    EXPECT_EQ(mild.warnings.size(), 1u);
    EXPECT_EQ(mild.files, 2u);
    options.strict = true;
    const copy_report_t strict = Run();
    EXPECT_EQ(Failed(strict), texts_t{"a: an attribute was not kept"});
    EXPECT_TRUE(strict.warnings.empty());
    EXPECT_EQ(strict.files, 1u);
}

TEST_P(Copier, DryRunTellsEachDecisionAndPutsNothing) {
    options.overwrite = options.dryRun = true;
    fs::create_directories(At("top/old"));
    Write("top/old/same");
    Write("top/old/other");
    Write("top/new");
    Link("top/new", "top/new2");
    ASSERT_EQ(::mkfifo(At("top/pipe").c_str(), 0600), 0);
    for (const char* name : {"top", "top/old", "top/old/same", "top/old/other"}) {
        LayDown(name);
    }
    sink.there["top/old/other"].size = 77;
    const copy_report_t report = Run();
    EXPECT_EQ(observer.texts, (texts_t{"skip FIFO pipe", "copy new", "link new2", "replace other",
                                       "skip unchanged same", "update old", "update top"}));
    EXPECT_TRUE(sink.puts.empty());
    EXPECT_EQ(report.files, 0u);
}

TEST_P(Copier, OfTwoSourcesForOnePlaceTheFirstIsInItsPlaceBeforeTheSecondIsLookedAt) {
    Write("top/a");
    copier_t copier(options, sink, observer, {.groups = true, .batches = GetParam()});
    const copy_job_t job{OpenCopySource(At("top"), options), "top", false};
    copier.Run(job);
    EXPECT_TRUE(sink.commits.empty());
    copier.Run(job);
    EXPECT_EQ(sink.commits, std::vector<std::uint64_t>{2});
    copier.Finish();
    EXPECT_EQ(sink.commits, (std::vector<std::uint64_t>{2, 2}));
}

}  // namespace
}  // namespace agent::copy
