#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <utility>

#include "tests/support/caught.h"
#include "tests/support/copier_fixture.h"
#include "tests/support/faulty_syscalls.h"
#include "tests/support/scoped_variable.h"

namespace agent::copy {
namespace {

namespace fs = std::filesystem;
using tests::texts_t;

class CopierInBatches : public tests::copier_fixture_t {
  protected:
    using copier_fixture_t::Run;
    copy_report_t Run() { return Run({.groups = true, .batches = true}); }

    void WriteMany(std::size_t count) const {
        for (std::size_t i = 0; i < count; ++i) {
            Write("top/" + std::to_string(1000 + i));
        }
    }
};

TEST_F(CopierInBatches, WholeTreeTravelsInOneBatchWithEverythingThatItIs) {
    fs::create_directory(At("top/dir"));
    Write("top/dir/file", "content");
    Write("top/empty", "");
    fs::create_symlink("some/target", At("top/link"));
    const copy_report_t report = Run();
    EXPECT_EQ(sink.calls, (texts_t{"batch of 5", "commit 5"}));
    EXPECT_EQ(sink.Put(),
              (texts_t{"file top/dir/file", "directory top/dir", "file top/empty", "link top/link", "directory top"}));
    EXPECT_EQ(sink.puts[0].content, "content");
    EXPECT_EQ(sink.puts[3].item.second, "some/target");
    struct stat examined {};
    ASSERT_EQ(::stat(At("top/dir/file").c_str(), &examined), 0);
    EXPECT_EQ(sink.puts[0].item.info.modificationTime.seconds, examined.st_mtim.tv_sec);
    EXPECT_EQ(sink.puts[0].item.info.owner.id, examined.st_uid);
    EXPECT_EQ(report.files, 2u);
    EXPECT_EQ(report.links, 1u);
    EXPECT_EQ(report.bytes, 7u);
    EXPECT_EQ(observer.bytes, 7u);
}

TEST_F(CopierInBatches, SparseFileArrivesWithItsZeroes) {
    Write("top/sparse", "begin");
    fs::resize_file(At("top/sparse"), 900'000);
    options.blockSize = 65'536;
    EXPECT_TRUE(Run().failed.empty());
    EXPECT_EQ(sink.puts[0].content, "begin" + std::string(899'995, '\0'));
}

TEST_F(CopierInBatches, LargeFileGoesAloneAfterWhatWasPackedBeforeIt) {
    options.batchLimit = 10;
    Write("top/a", "0123456789");
    Write("top/b", "0123456789+");
    Write("top/c");
    EXPECT_EQ(Run().files, 3u);
    EXPECT_EQ(sink.calls, (texts_t{"batch of 1", "put top/b", "batch of 2", "commit 4"}));
    for (std::size_t i = 0; i < sink.puts.size(); ++i) {
        EXPECT_EQ(sink.puts[i].item.entry, i);
    }
}

TEST_F(CopierInBatches, BatchLimitHasALimit) {
    options.batchLimit = std::uint64_t{1} << 40;
    Write("top/a", std::string(batch::kMaxBatchFile + 1, 'x'));
    Write("top/b", std::string(batch::kMaxBatchFile, 'x'));
    EXPECT_EQ(Run().files, 2u);
    EXPECT_EQ(sink.calls, (texts_t{"put top/a", "batch of 1", "batch of 1", "commit 3"}));
}

TEST_F(CopierInBatches, BatchIsHandedOverWhenItHasEnoughBytes) {
    for (int i = 0; i < 9; ++i) {
        Write("top/" + std::to_string(i), std::string(1'000'000, 'x'));
    }
    EXPECT_EQ(Run().files, 9u);
    EXPECT_EQ(sink.calls, (texts_t{"batch of 5", "batch of 5", "commit 10"}));
}

TEST_F(CopierInBatches, HardLinkFollowsTheBatchWithItsFirstName) {
    Write("top/a");
    Link("top/a", "top/b");
    const copy_report_t report = Run();
    EXPECT_EQ(sink.calls, (texts_t{"batch of 1", "put top/b", "batch of 1", "commit 3"}));
    EXPECT_EQ(report.hardLinks, 1u);
}

TEST_F(CopierInBatches, NameAfterALostBatchedFirstIsSentAsAFile) {
    Write("top/a");
    Link("top/a", "top/b");
    Link("top/a", "top/c");
    sink.lost = {{0, "no"}, {1, "first is missing"}, {2, "first is missing"}};
    const copy_report_t report = Run();
    EXPECT_EQ(Failed(report), texts_t{"a: no"});
    EXPECT_EQ(report.files + report.hardLinks, 2u);
}

TEST_F(CopierInBatches, FileThatCannotBeReadIsLostAloneAndItsNumberGoesToTheNext) {
    Write("top/a");
    Write("top/b");
    Write("top/c");
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::pread>(EIO, 2);
    const copy_report_t report = Run();
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_EQ(report.failed[0].path, At("top/b"));
    EXPECT_NE(report.failed[0].text.find("Failed to read from file"), std::string::npos);
    EXPECT_EQ(sink.Put(), (texts_t{"file top/a", "file top/c", "directory top"}));
    EXPECT_EQ(sink.puts[1].item.entry, 1u);
    EXPECT_EQ(sink.commits, std::vector<std::uint64_t>{3});
    EXPECT_EQ(report.files, 2u);
}

// What happens to the file at g_path when it is first read from.
std::string g_path;
std::function<void()> g_change;

ssize_t ChangeThenRead(int fd, void* buffer, std::size_t count, off_t offset) {
    const fs::path read = fs::read_symlink("/proc/self/fd/" + std::to_string(fd));
    if (read == g_path && g_change) {
        std::exchange(g_change, {})();
    }
    return posix::real_syscalls().pread(fd, buffer, count, offset);
}

class CopierOfAFileThatChanges : public CopierInBatches {
  protected:
    CopierOfAFileThatChanges() {
        Write("top/a");
        Write("top/b", "12345");
        Write("top/c");
        g_path = fs::canonical(At("top/b"));
        calls_.Table().pread = &ChangeThenRead;
    }
    void TouchWhenRead() const {
        const timespec times[2] = {{1, 0}, {1, 0}};
        ::utimensat(AT_FDCWD, g_path.c_str(), times, 0);
        g_change = [] {
            const timespec later[2] = {{2, 0}, {2, 0}};
            ::utimensat(AT_FDCWD, g_path.c_str(), later, 0);
        };
    }

    tests::faulty_syscalls_t calls_;
};

TEST_F(CopierOfAFileThatChanges, FileOfAnotherSizeIsLostAlone) {
    g_change = [] { std::ofstream(g_path, std::ios::app) << "6"; };
    const copy_report_t report = Run();
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_NE(report.failed[0].text.find("it had [5] bytes and now has [6]."), std::string::npos);
    EXPECT_EQ(sink.Put(), (texts_t{"file top/a", "file top/c", "directory top"}));
    EXPECT_EQ(sink.commits, std::vector<std::uint64_t>{3});
}

TEST_F(CopierOfAFileThatChanges, FileThatWasWrittenToIsSentWithAWarning) {
    TouchWhenRead();
    const copy_report_t report = Run();
    ASSERT_EQ(report.warnings.size(), 1u);
    EXPECT_NE(report.warnings[0].text.find("changed while it was read."), std::string::npos);
    EXPECT_EQ(report.files, 3u);
}

TEST_F(CopierOfAFileThatChanges, StrictLosesIt) {
    options.strict = true;
    TouchWhenRead();
    const copy_report_t report = Run();
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_EQ(report.files, 2u);
    EXPECT_EQ(sink.Put(), (texts_t{"file top/a", "file top/c", "directory top"}));
}

TEST_F(CopierInBatches, NameThatIsTooLongThereIsLostAlone) {
    sink.batchPrefix = std::string(4090, 'p');
    Write("top/a");
    Write("top/much-too-long");
    const copy_report_t report = Run();
    ASSERT_EQ(report.failed.size(), 1u);
    EXPECT_NE(report.failed[0].text.find("its path is too long"), std::string::npos);
    EXPECT_EQ(sink.commits, std::vector<std::uint64_t>{2});
}

TEST_F(CopierInBatches, GroupWhoseBatchFailsTwiceIsLostAndTheNextGoesOn) {
    WriteMany(group_keeper_t::kMaxItems + 1);
    sink.batchFaults = {"line cut", "line cut again"};
    const copy_report_t report = Run();
    EXPECT_EQ(sink.calls, (texts_t{"batch of 512", "batch of 512", "batch of 2", "commit 2"}));
    ASSERT_EQ(report.failed.size(), group_keeper_t::kMaxItems);
    EXPECT_EQ(report.failed[0].text, "line cut again");
    EXPECT_EQ(report.files, 1u);
    EXPECT_EQ(observer.done, 2);
}

TEST_F(CopierInBatches, WithoutGroupsEachBatchIsCommittedByItselfAndTheRestGoesAtOnce) {
    options.durability = EDurability::eNone;
    options.batchLimit = 3;
    Write("top/a");
    Write("top/b");
    Write("top/large", "large");
    Write("top/m");
    EXPECT_EQ(Run({.groups = false, .batches = true}).files, 4u);
    EXPECT_EQ(sink.calls, (texts_t{"batch of 2", "commit 2", "put top/large", "batch of 2", "commit 2"}));
    EXPECT_TRUE(sink.puts[0].item.deferred);
    EXPECT_TRUE(sink.puts[0].item.unsynced);
    EXPECT_FALSE(sink.puts[2].item.deferred);
    EXPECT_EQ(sink.puts[3].item.entry, 0u);
}

TEST_F(CopierInBatches, PackingGoesOnWhileABatchIsUnderWay) {
    WriteMany(2 * group_keeper_t::kMaxItems);
    std::promise<void> packed;  // the first batch ends only when some of the second group is
    sink.onBatch = [&] {
        if (sink.calls.size() == 1) {
            packed.get_future().wait();
        }
    };
    observer.onBytes = [&] {
        if (observer.bytes == group_keeper_t::kMaxItems + 10) {
            packed.set_value();
        }
    };
    EXPECT_EQ(Run().files, 2 * group_keeper_t::kMaxItems);
}

TEST_F(CopierInBatches, StopRequestWhileABatchIsUnderWayEndsTheCopy) {
    std::stop_source stop;
    options.remote.stop = stop.get_token();
    Write("top/a");
    sink.onBatch = [&] { stop.request_stop(); };
    EXPECT_EQ(tests::Catch([&] { Run(); }).message, "The work was cancelled.");
    EXPECT_EQ(sink.calls, texts_t{"batch of 2"});
}

TEST_F(CopierInBatches, CopierThatIsDroppedPutsNothingMore) {
    const tests::temp_dir_t temporary;
    const tests::scoped_variable_t variable("TMPDIR", temporary.path());
    Write("top/a");
    {
        copier_t copier(options, sink, observer, {.groups = true, .batches = true});
        const copy_job_t job{OpenCopySource(At("top"), options), "top", false};
        copier.Run(job);
        EXPECT_FALSE(fs::is_empty(temporary.path()));
    }
    EXPECT_TRUE(sink.calls.empty());
    EXPECT_TRUE(fs::is_empty(temporary.path()));
}

TEST_F(CopierInBatches, NothingTemporaryIsLeft) {
    const tests::temp_dir_t temporary;
    const tests::scoped_variable_t variable("TMPDIR", temporary.path());
    WriteMany(600);
    sink.batchFaults = {"line cut", "line cut again"};
    Run();
    EXPECT_TRUE(fs::is_empty(temporary.path()));
}

TEST_F(CopierInBatches, WithoutAPlaceForTemporaryFilesEveryItemGoesAlone) {
    const tests::scoped_variable_t variable("TMPDIR", At("nowhere"));
    Write("top/a");
    EXPECT_EQ(Run().files, 1u);
    EXPECT_EQ(sink.calls, (texts_t{"put top/a", "put top", "commit 2"}));
}

TEST_F(CopierInBatches, ItemsOfABatchThatCannotBeWrittenGoAloneAndSoDoesTheRest) {
    Write("top/a");
    Write("top/b", "twenty bytes, nearly");
    fs::create_symlink("a", At("top/c"));
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    const copy_report_t report = Run();
    EXPECT_EQ(Failed(report), texts_t{});
    EXPECT_EQ(sink.calls, (texts_t{"put top/a", "put top/b", "put top/c", "put top", "commit 4"}));
    EXPECT_EQ(report.files, 2u);
    EXPECT_EQ(report.links, 1u);
    EXPECT_EQ(report.directories, 1u);
    EXPECT_EQ(report.bytes, 21u);
    EXPECT_EQ(observer.bytes, 21u);
    EXPECT_EQ(calls.Count<&posix::syscalls_t::write>(), 1);
}

TEST_F(CopierInBatches, NumbersOfABatchThatCannotBeWrittenGoToItsItemsAgain) {
    options.batchLimit = batch::kMaxBatchFile;
    Write("top/a", std::string(batch::kBatchPayload, 'a'));  // a batch by itself
    Write("top/b");
    Write("top/c", std::string(batch::kMaxBatchFile + 1, 'c'));  // goes alone
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC, 3);
    EXPECT_EQ(Failed(Run()), texts_t{});
    EXPECT_EQ(sink.calls, (texts_t{"batch of 1", "put top/b", "put top/c", "put top", "commit 4"}));
    ASSERT_EQ(sink.puts.size(), 4u);
    for (std::uint64_t number = 0; number < 4; ++number) {
        EXPECT_EQ(sink.puts[number].item.entry, number);
    }
}

TEST_F(CopierInBatches, WhatAKilledCopyLeftIsRemovedThoughNothingIsSent) {
    const tests::temp_dir_t temporary;
    const tests::scoped_variable_t variable("TMPDIR", temporary.path());
    fs::create_directory(temporary / "tarn-batch-killed");
    options.overwrite = true;
    LayDown("top");
    Run();
    EXPECT_EQ(sink.calls, texts_t{});
    EXPECT_TRUE(fs::is_empty(temporary.path()));
}

TEST_F(CopierInBatches, GroupThatIsFullOfABatchThatCannotBeWrittenIsCommittedWithItsItems) {
    WriteMany(group_keeper_t::kMaxItems + 1);
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    const copy_report_t report = Run();
    EXPECT_EQ(Failed(report), texts_t{});
    EXPECT_EQ(report.files, group_keeper_t::kMaxItems + 1);
    EXPECT_EQ(sink.commits, (std::vector<std::uint64_t>{group_keeper_t::kMaxItems, 2}));
}

TEST_F(CopierInBatches, WithoutGroupsItemsOfABatchThatCannotBeWrittenGoAlone) {
    Write("top/a");
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    EXPECT_EQ(copier_fixture_t::Run({.groups = false, .batches = true}).files, 1u);
    EXPECT_EQ(sink.calls, (texts_t{"put top/a", "put top"}));
}

TEST_F(CopierInBatches, FileOfABatchThatCannotBeWrittenIsThereBeforeItsOtherNames) {
    Write("top/a");
    Link("top/a", "top/b");
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    EXPECT_EQ(Failed(Run()), texts_t{});
    EXPECT_EQ(sink.Put(), (texts_t{"file top/a", "hard link top/b -> top/a", "directory top"}));
}

TEST_F(CopierInBatches, FileThatCannotBeReadOnceMoreFailsByItself) {
    Write("top/a");
    Write("top/b");
    tests::faulty_syscalls_t calls;
    calls.Fail<&posix::syscalls_t::write>(ENOSPC);
    calls.Fail<&posix::syscalls_t::pread>(EIO, 3);
    EXPECT_EQ(Failed(Run()), (texts_t{"a: Failed to read from file [" + At("top/a") + "]: Input/output error"}));
    EXPECT_EQ(sink.Put(), (texts_t{"file top/b", "directory top"}));
}

}  // namespace
}  // namespace agent::copy
