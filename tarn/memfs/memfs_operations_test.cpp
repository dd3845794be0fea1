#include "tarn/memfs/memfs_operations.h"

#include <atomic>
#include <functional>
#include <map>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/mem_rstream.h"
#include "tarn/memfs/memfs_file_wstream.h"
#include "tarn/memfs/memfs_mem_slots.h"
#include "tests/support/caught.h"
#include "tests/support/logged.h"

namespace {

using logging::ELevel;
using tarn::CSymlinkData;
using tarn::EFileInfoType;
using tarn::ESymlinkType;
using tarn::memfs::memfs_mem_slots_t;
using tarn::memfs::memfs_operations_t;
using testing::ElementsAre;
using tests::Catch;
using tests::Logged;

static_assert(sizeof(memfs_operations_t) == sizeof(tarn::fs_operations_t), "the backend has no state");
static_assert(!std::is_abstract_v<memfs_operations_t>);

class MemfsOperationsTest : public testing::Test {
  protected:
    ~MemfsOperationsTest() override { memfs_mem_slots_t::Inst().Clear(); }

    void Put(const std::string& path, const std::string& content) {
        memfs_.CreateNewFile(path, 0, false)->WriteExc(content.data(), content.size());
    }
    static std::string Read(tarn::file_rstream_t& stream, std::uint64_t count) {
        std::string text(count, '?');
        text.resize(stream.ReadExc(text.data(), count));
        return text;
    }

    memfs_operations_t memfs_;
};

TEST_F(MemfsOperationsTest, ANewFileIsThereAtOnceWhateverTheCaseOfThePrefix) {
    tests::log_capture_t log;
    const auto stream = memfs_.CreateNewFile("MemFs://a", 100, false);
    EXPECT_NE(dynamic_cast<tarn::memfs::memfs_file_wstream_t*>(stream.get()), nullptr);
    EXPECT_TRUE(memfs_.IsObjectExist("memfs://a"));
    EXPECT_FALSE(memfs_.IsObjectExist("memfs://A"));
    EXPECT_EQ(memfs_.OpenFile4Read("memfs://a")->GetFileSize(), 0U) << "the length is only logged";
    EXPECT_EQ(memfs_mem_slots_t::Inst().GetSlotExc("a")->capacity(), 0U);
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "MemFS: Creating new file. File path: [MemFs://a]. File size: [100]."));
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "MemFS: File created."));
}

TEST_F(MemfsOperationsTest, BytesAndZeroesAreReadBack) {
    const auto writer = memfs_.CreateNewFile("MemFs://a", 15, true);
    writer->WriteExc("0123456789", 10);
    writer->WriteZeroes(5);
    const auto reader = memfs_.OpenFile4Read("MemFs://a");
    EXPECT_NE(dynamic_cast<tarn::mem_rstream_t*>(reader.get()), nullptr);
    EXPECT_EQ(reader->GetFileSize(), 15U);
    EXPECT_EQ(Read(*reader, 12), std::string("0123456789\0\0", 12));
    EXPECT_EQ(Read(*reader, 8), std::string(3, '\0'));
    EXPECT_EQ(Read(*reader, 8), "");
}

TEST_F(MemfsOperationsTest, ReadersAndWritersSpellThePathInTheirOwnWays) {
    EXPECT_EQ(memfs_.CreateNewFile("mEmFs://A", 0, false)->GetPath(), "MemFs://A");
    EXPECT_EQ(memfs_.OpenFile4Read("mEmFs://A")->GetPath(), "mEmFs://A");
}

TEST_F(MemfsOperationsTest, CreatingAgainEmptiesTheFileAndSparesOpenReaders) {
    for (const bool overwrite : {false, true}) {
        Put("MemFs://a", "old");
        const auto reader = memfs_.OpenFile4Read("MemFs://a");
        memfs_.CreateNewFile("MemFs://a", 3, overwrite);
        EXPECT_EQ(memfs_.OpenFile4Read("MemFs://a")->GetFileSize(), 0U);
        EXPECT_EQ(Read(*reader, 3), "old");
    }
}

TEST_F(MemfsOperationsTest, AReaderFollowsAWriterAndSurvivesTheDeletion) {
    const auto writer = memfs_.CreateNewFile("MemFs://a", 0, false);
    const auto reader = memfs_.OpenFile4Read("MemFs://a");
    writer->WriteExc("01", 2);
    EXPECT_EQ(reader->GetFileSize(), 2U);
    EXPECT_EQ(Read(*reader, 5), "01");
    memfs_.DeleteFile("MemFs://a");
    writer->WriteExc("23", 2);
    EXPECT_EQ(Read(*reader, 5), "23");
    EXPECT_FALSE(memfs_.IsObjectExist("MemFs://a"));
}

TEST_F(MemfsOperationsTest, DeletingIsTracedAndAMissingFileIsFine) {
    Put("MemFs://a", "content");
    for (int round = 0; round != 2; ++round) {
        tests::log_capture_t log;
        memfs_.DeleteFile("MemFs://a");
        EXPECT_TRUE(Logged(log, ELevel::eTrace, "MemFS: Deleting file: [MemFs://a]."));
        EXPECT_TRUE(Logged(log, ELevel::eTrace, "MemFS: File deleted."));
        EXPECT_FALSE(memfs_.IsObjectExist("MemFs://a"));
    }
}

// Counts the calls of the operation that the other one is to use.
class counting_operations_t final : public memfs_operations_t {
  public:
    std::shared_ptr<tarn::file_rstream_t> OpenFile4Read(const std::string& path) override {
        paths.push_back(path);
        return nullptr;
    }
    std::vector<std::string> paths;
};

TEST_F(MemfsOperationsTest, OpeningForExclusiveUseIsOpeningForReading) {
    counting_operations_t counting;
    EXPECT_EQ(counting.OpenFile4ReadWithoutWriteShare("MemFs://a"), nullptr);
    EXPECT_THAT(counting.paths, ElementsAre("MemFs://a"));
}

TEST_F(MemfsOperationsTest, OpeningAMissingFileTellsWhichSlotIsMissing) {
    const auto caught = Catch([&] { memfs_.OpenFile4Read("memfs://a"); });
    EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
    EXPECT_EQ(caught.message, "MemFS: Cannot open file. File path: [memfs://a].");
    EXPECT_THAT(caught.causes, ElementsAre("Memory slot does not exist: [a]."));
}

TEST_F(MemfsOperationsTest, APathOfAnotherBackendFailsUnderTheOperationsOwnText) {
    const std::map<std::string, std::function<void()>> operations = {
        {"MemFS: Cannot open file. File path: [other].", [&] { memfs_.OpenFile4Read("other"); }},
        {"MemFS: Cannot create new file: [other]. File size: [7].", [&] { memfs_.CreateNewFile("other", 7, true); }},
        {"MemFS: Cannot delete file: [other].", [&] { memfs_.DeleteFile("other"); }},
        {"MemFS: Cannot check whether file exitst: [other].", [&] { memfs_.IsObjectExist("other"); }},
    };
    for (const auto& [message, operation] : operations) {
        const auto caught = Catch(operation);
        EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
        EXPECT_EQ(caught.message, message);
        EXPECT_THAT(caught.causes, ElementsAre("Invalid MemFS path: [%1]."));
    }
}

TEST_F(MemfsOperationsTest, FailedCreationsAndDeletionsLeaveATrace) {
    tests::log_capture_t log;
    Catch([&] { memfs_.CreateNewFile("other", 7, true); });
    Catch([&] { memfs_.DeleteFile("other"); });
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Failed: MemFS: Creating new file. File path: [other]. File size: [7]."));
    EXPECT_TRUE(Logged(log, ELevel::eTrace, "Failed: MemFS: Deleting file: [other]."));
    EXPECT_FALSE(Logged(log, ELevel::eTrace, "MemFS: File created."));
    EXPECT_FALSE(Logged(log, ELevel::eTrace, "MemFS: File deleted."));
}

TEST_F(MemfsOperationsTest, RegenTraceLeavesALineAndRegenDoesNot) {
    const auto traced = [](const tests::log_capture_t& log, std::string_view text) {
        for (const auto& record : log.Lines()) {
            if (record.section == "exc" && record.text.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    };
    tests::log_capture_t log;
    Catch([&] { memfs_.IsObjectExist("other"); });
    EXPECT_TRUE(traced(log, "MemFS: Cannot check whether file exitst: [other]."));
    Catch([&] { memfs_.OpenFile4Read("other"); });
    EXPECT_FALSE(traced(log, "MemFS: Cannot open file.")) << "a missing file is an everyday answer";
}

TEST_F(MemfsOperationsTest, WhatMemoryDoesNotOfferIsRefusedUnwrapped) {
    const auto unsupported = [](const std::string& operation) {
        return "MEMFS: operation does not supported. Operation: [" + operation + "].";
    };
    Put("MemFs://a", "content");
    const std::map<std::string, std::function<void()>> operations = {
        {unsupported("CreateSymLink"),
         [&] { memfs_.CreateSymLink("MemFs://l", CSymlinkData(ESymlinkType::eFileLink, "a")); }},
        {unsupported("CreateDir"), [&] { memfs_.CreateDir("MemFs://d"); }},
        {unsupported("SetFileMetadata"), [&] { memfs_.SetFileMetadata(util::CFileInfo(), "MemFs://a"); }},
        {unsupported("GetBackupMedia"), [&] { memfs_.GetBackupMedia(); }},
        {unsupported("RenameFile"), [&] { memfs_.RenameFile("MemFs://a", "MemFs://b"); }},
        {"MemFS doesn't support disk operations. Disk path: [MemFs://a].", [&] { memfs_.OpenDisk4Read("MemFs://a"); }},
        {"Failed to open file 'MemFs://a' for incremental update.", [&] { memfs_.OpenFile4Write("MemFs://a", 3); }},
    };
    for (const auto& [what, operation] : operations) {
        const auto caught = Catch(operation);
        EXPECT_TRUE(caught.Is<exc::CRuntimeExc>());
        EXPECT_EQ(caught.what, what);
    }
    EXPECT_TRUE(Catch([&] { memfs_.EnumerateDirectoryContent("MemFs://"); }).Is<exc::CNotImplExc>());
    EXPECT_EQ(Read(*memfs_.OpenFile4Read("MemFs://a"), 10), "content");
}

TEST_F(MemfsOperationsTest, QuestionsAreAnsweredForAnyPath) {
    EXPECT_FALSE(memfs_.IsRenameSupported());
    for (const char* const path : {"MemFs://a", "MemFs://missing", "other", ""}) {
        for (const auto type :
             {EFileInfoType::eFileInfoBasic, EFileInfoType::eFileInfoAclOnly, EFileInfoType::eFileInfoFull}) {
            EXPECT_EQ(memfs_.GetFileMetadata(path, type), util::CFileInfo());
        }
        CSymlinkData out(ESymlinkType::eDirLink, "before");
        EXPECT_FALSE(memfs_.TryGetSymLinkInfo(path, out));
        EXPECT_EQ(static_cast<std::string>(out), "before");
    }
}

TEST_F(MemfsOperationsTest, ManyThreadsShareOneObject) {
    std::atomic<int> failures = 0;
    std::vector<std::jthread> threads;
    for (int id = 0; id != 8; ++id) {
        threads.emplace_back([&, id] {
            const std::string path = "MemFs://" + std::to_string(id);
            for (int round = 0; round != 300; ++round) {
                memfs_.CreateNewFile(path, 1, false)->WriteExc("x", 1);
                failures += Read(*memfs_.OpenFile4Read(path), 2) != "x";
                memfs_.DeleteFile(path);
                failures += memfs_.IsObjectExist(path);
            }
        });
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
}

}  // namespace
