#include "tarn/flr/flrfs_operations.h"

#include <filesystem>
#include <fstream>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/runtime_exc.h"
#include "tarn/tarn_context.h"
#include "tests/support/caught_error.h"
#include "tests/support/logged.h"
#include "tests/support/mock_fs_operations.h"
#include "tests/support/mock_streams.h"
#include "tests/support/temp_dir.h"

namespace tarn {
namespace {

namespace stdfs = std::filesystem;
using logging::ELevel;
using testing::_;
using testing::Return;

constexpr const char* kNoRule = "No suitable mapping rule was found for a given path.";

/// A volume of a view: "<dir>/vol" is "/mnt/v" in the rules of the process's context.
class FlrfsOperations : public testing::Test {
  protected:
    FlrfsOperations() {
        stdfs::create_directories(Real("sub"));
        Write("file", "the file");
        Write("sub/file", "the other");
        Write("../secret", "secret");
        Rules().AddMappingRule(dir_.path() + "/vol", "/mnt/v");
    }
    ~FlrfsOperations() override { Rules().Reset(); }

    static CFLRContext& Rules() { return *CTarnContext::Instance().GetFLRContext(); }
    std::string Real(const std::string& name) const { return dir_.path() + "/vol/" + name; }
    static std::string View(const std::string& name) { return "FlrFS:///mnt/v/" + name; }
    void Write(const std::string& name, const std::string& text) const { std::ofstream(Real(name)) << text; }
    void Link(const std::string& target, const std::string& name) const { stdfs::create_symlink(target, Real(name)); }

    std::string Read(const std::string& name) {
        const auto stream = operations_.OpenFile4Read(View(name));
        std::string text(stream->GetFileSize(), '\0');
        stream->ReadExc(text.data(), text.size());
        stream->FinishRead();
        return text;
    }
    /// The link at a path, its target in front of its type; "no link" otherwise.
    std::string LinkAt(const std::string& name) {
        CSymlinkData link;
        if (!operations_.TryGetSymLinkInfo(View(name), link)) {
            return link.IsValid() ? "touched" : "no link";
        }
        return std::string(link);
    }
    static void ExpectMessage(const std::string& text, const std::function<void()>& action) {
        const auto caught = tests::CatchError(action);
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, text);
        EXPECT_TRUE(caught.causes.empty());
    }

    tests::temp_dir_t dir_;
    flrfs_operations_t operations_;
};

TEST_F(FlrfsOperations, HoldsNothingButTheHostBackend) {
    EXPECT_EQ(sizeof(flrfs_operations_t), sizeof(fs_operations_t) + sizeof(std::shared_ptr<fs_operations_t>));
}

TEST_F(FlrfsOperations, PrefixIsExact) {
    EXPECT_EQ(flrfs_operations_t::GetFlrFsPrefix(), "FlrFS://");
    EXPECT_TRUE(flrfs_operations_t::IsFlrFsPath("FlrFS://"));
    EXPECT_TRUE(flrfs_operations_t::IsFlrFsPath("FlrFS:///a"));
    for (const std::string path : {"", "FlrFS:/", "flrfs:///a", "FLRFS:///a", " FlrFS:///a"}) {
        EXPECT_FALSE(flrfs_operations_t::IsFlrFsPath(path)) << path;
    }
}

TEST_F(FlrfsOperations, MappingLogsBothPaths) {
    const tests::log_capture_t log;
    EXPECT_EQ(flrfs_operations_t::MapPathToRealFs(View("a%1")), Real("a%1"));
    const auto records = log.Lines();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0].level, ELevel::eTrace);
    EXPECT_EQ(records[0].text, "Using FLR context to map file path to real files");
    EXPECT_EQ(records[1].level, ELevel::eInfo);
    EXPECT_EQ(records[1].text, "Original file path (on mounted FS): '/mnt/v/a%1'.");
    EXPECT_EQ(records[2].level, ELevel::eInfo);
    EXPECT_EQ(records[2].text, "Mapped file path {on real FS}: '" + Real("a%1") + "'.");
    for (const auto& record : records) {
        EXPECT_EQ(record.section, "fs_log");
    }
}

TEST_F(FlrfsOperations, MappingRefusesOtherPathsBeforeItLogs) {
    const tests::log_capture_t log;
    for (const std::string path : {"/mnt/v/a", "flrfs:///mnt/v/a", ""}) {
        ExpectMessage("Path is not an FLR FS path.", [&] { flrfs_operations_t::MapPathToRealFs(path); });
    }
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(FlrfsOperations, MappingWithoutARuleIsRefusedAndTraced) {
    const tests::log_capture_t log;
    ExpectMessage(kNoRule, [] { flrfs_operations_t::MapPathToRealFs("FlrFS:///other/a"); });
    EXPECT_TRUE(tests::Logged(log, ELevel::eInfo, "Original file path (on mounted FS): '/other/a'."));
    EXPECT_TRUE(tests::Logged(log, ELevel::eTrace, "Failed: Using FLR context to map file path to real files"));
}

TEST_F(FlrfsOperations, MappingResolvesDotsByNameFirst) {
    EXPECT_EQ(flrfs_operations_t::MapPathToRealFs(View("sub/../file")), Real("file"));
    ExpectMessage(kNoRule, [] { flrfs_operations_t::MapPathToRealFs(View("../../etc/passwd")); });
}

TEST_F(FlrfsOperations, FilesAreRead) {
    EXPECT_EQ(Read("file"), "the file");
    EXPECT_EQ(Read("sub/file"), "the other");
    EXPECT_EQ(operations_.OpenFile4Read(View("file"))->GetPath(), Real("file"));
}

TEST_F(FlrfsOperations, MissingFileIsTheHostsError) {
    const auto caught = tests::CatchError([this] { operations_.OpenFile4Read(View("missing")); });
    EXPECT_EQ(caught.message, "Failed to open file [" + Real("missing") + "] for reading.");
}

TEST_F(FlrfsOperations, LinksAreOpenedAtTheirTargetInTheView) {
    Link("/mnt/v/sub/file", "abs");
    Link("sub/file", "rel");
    Link("../file", "sub/up");
    Link("/mnt/v/sub", "dir");
    EXPECT_EQ(Read("abs"), "the other");
    EXPECT_EQ(Read("rel"), "the other");
    EXPECT_EQ(Read("sub/up"), "the file");
    EXPECT_EQ(Read("dir/file"), "the other");
    EXPECT_EQ(Read("dir/up"), "the file");
    EXPECT_EQ(operations_.OpenFile4Read(View("rel"))->GetPath(), Real("sub/file"));
}

TEST_F(FlrfsOperations, OpeningALinkIsLoggedWithItsTarget) {
    Link("/mnt/v/sub/file", "abs");
    Link("sub/file", "rel");
    const tests::log_capture_t log;
    Read("abs");
    Read("rel");
    EXPECT_TRUE(tests::Logged(
        log, ELevel::eInfo, "File [" + View("abs") + "] is a symbolic link. Link target: [" + Real("sub/file") + "]."));
    EXPECT_TRUE(
        tests::Logged(log, ELevel::eInfo, "File [" + View("rel") + "] is a symbolic link. Link target: [sub/file]."));
}

TEST_F(FlrfsOperations, NothingOutsideTheViewIsEverRead) {
    const std::string secret = dir_.path() + "/secret";
    Link(secret, "abs");
    Link("../secret", "rel");
    Link("abs", "second");
    Link("..", "up");
    Link("/", "root");
    Link("/mnt/v/rel", "chain");
    for (const std::string name :
         {"abs", "rel", "second", "up/secret", "chain", "../secret", "sub/../../secret", "root/etc/passwd"}) {
        EXPECT_THROW(Read(name), exc::CRuntimeExc) << name;
        EXPECT_THROW(operations_.OpenFile4ReadWithoutWriteShare(View(name)), exc::CRuntimeExc) << name;
    }
    EXPECT_THROW(Read("root" + secret), exc::CRuntimeExc);
    for (const std::string name : {"up/secret", "root/etc/passwd"}) {
        ExpectMessage(kNoRule, [&] { operations_.IsObjectExist(View(name)); });
        ExpectMessage(kNoRule, [&] { operations_.GetFileMetadata(View(name), EFileInfoType::eFileInfoBasic); });
        ExpectMessage(kNoRule, [&] { LinkAt(name); });
    }
}

TEST_F(FlrfsOperations, DanglingLinkFailsInTheHostsOpen) {
    Link("nothing", "rel");
    Link("/mnt/v/sub/nothing", "abs");
    EXPECT_EQ(tests::CatchError([this] { Read("rel"); }).message,
              "Failed to open file [" + Real("nothing") + "] for reading.");
    EXPECT_EQ(tests::CatchError([this] { Read("abs"); }).message,
              "Failed to open file [" + Real("sub/nothing") + "] for reading.");
}

TEST_F(FlrfsOperations, CycleFailsWithoutAnEndlessWalk) {
    Link("loop", "loop");
    EXPECT_EQ(tests::CatchError([this] { Read("loop"); }).type, "posix::errno_exc_t");
    EXPECT_EQ(LinkAt("loop"), "loop");
}

TEST_F(FlrfsOperations, ExistenceIsAskedOfTheHostWithoutFollowingTheLastLink) {
    Link("/etc", "abs");
    Link("nothing", "dangling");
    Link("sub", "dir");
    EXPECT_TRUE(operations_.IsObjectExist(View("file")));
    EXPECT_TRUE(operations_.IsObjectExist(View("sub")));
    EXPECT_TRUE(operations_.IsObjectExist(View("abs")));
    EXPECT_TRUE(operations_.IsObjectExist(View("dangling")));
    EXPECT_TRUE(operations_.IsObjectExist(View("dir/file")));
    EXPECT_TRUE(operations_.IsObjectExist("FlrFS:///mnt/v"));
    EXPECT_FALSE(operations_.IsObjectExist(View("missing")));
    EXPECT_FALSE(operations_.IsObjectExist(View("dir/missing")));
    ExpectMessage(kNoRule, [this] { operations_.IsObjectExist("FlrFS:///mnt"); });
    ExpectMessage("Path is not an FLR FS path.", [this] { operations_.IsObjectExist("/mnt/v/file"); });
}

TEST_F(FlrfsOperations, MetadataIsTheHostsAndLogged) {
    Link("/etc", "link");
    Link("sub", "dir");
    const tests::log_capture_t log;
    const auto type = EFileInfoType::eFileInfoBasic;
    EXPECT_EQ(operations_.GetFileMetadata(View("file"), type).size, 8U);
    EXPECT_EQ(operations_.GetFileMetadata(View("dir/file"), type).size, 9U);
    EXPECT_TRUE(operations_.GetFileMetadata(View("link"), type).isSymlink());
    EXPECT_TRUE(tests::Logged(
        log, ELevel::eInfo,
        "<debug>: flrfs_operations_t::GetFileMetadata(): filePath = " + View("file") + ", realPath = " + Real("file")));
}

TEST_F(FlrfsOperations, AbsoluteTargetComesBackMappedRelativeOneAsItIs) {
    Link("/mnt/v/sub/file", "abs");
    Link("/mnt/v/sub/../file", "dots");
    Link("../v/sub/./file", "rel");
    Link("sub", "dir");
    Link("/mnt/v/file", "sub/inner");
    EXPECT_EQ(LinkAt("abs"), Real("sub/file"));
    EXPECT_EQ(LinkAt("dots"), Real("file"));
    EXPECT_EQ(LinkAt("rel"), "../v/sub/./file");
    EXPECT_EQ(LinkAt("dir/inner"), Real("file"));
    EXPECT_EQ(LinkAt("dir"), "sub");
    EXPECT_EQ(LinkAt("file"), "no link");
    EXPECT_EQ(LinkAt("missing"), "no link");
}

TEST_F(FlrfsOperations, TargetWithoutARuleIsRefused) {
    Link("/other/file", "abs");
    ExpectMessage(kNoRule, [this] { LinkAt("abs"); });
}

TEST_F(FlrfsOperations, LinksAreLoggedOnTheirWay) {
    Link("/mnt/v/sub/file", "abs");
    const std::string start = "<debug>: flrfs_operations_t::TryGetSymLinkInfo(): ";
    const std::string paths = start + "path = " + View("abs") + ", realPath = " + Real("abs");
    const tests::log_capture_t log;
    LinkAt("abs");
    EXPECT_TRUE(tests::Logged(log, ELevel::eInfo, paths));
    EXPECT_TRUE(tests::Logged(log, ELevel::eInfo, paths + ", linkContentsPath = /mnt/v/sub/file"));
    EXPECT_TRUE(
        tests::Logged(log, ELevel::eInfo, start + R"(util::str_is_starts_with(linkContentsPath, "/") == true)"));
    EXPECT_TRUE(tests::Logged(log, ELevel::eInfo, "Remapped link to path: [" + Real("sub/file") + "]."));
}

TEST_F(FlrfsOperations, RelativeTargetIsLoggedWithoutRemapping) {
    Link("sub/file", "rel");
    const tests::log_capture_t log;
    LinkAt("rel");
    std::string all;
    for (const auto& record : log.Lines()) {
        all += record.text + "\n";
    }
    EXPECT_THAT(all, testing::HasSubstr(", linkContentsPath = sub/file"));
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("== true")));
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("Remapped")));
}

TEST_F(FlrfsOperations, EveryWriteIsRefusedBeforeAnythingIsLookedAt) {
    const tests::log_capture_t log;
    for (const std::string& path : {View("file"), std::string("FlrFS:///other"), std::string("/no/view")}) {
        const std::function<void()> writes[] = {
            [&] { operations_.OpenFile4Write(path, 1); },
            [&] { operations_.CreateNewFile(path, 1, true); },
            [&] { operations_.CreateDir(path); },
            [&] { operations_.DeleteFile(path); },
            [&] { operations_.RenameFile(path, path); },
            [&] { operations_.SetFileMetadata(util::CFileInfo(), path); },
            [&] { operations_.CreateSymLink(path, CSymlinkData(ESymlinkType::eFileLink, "t")); },
        };
        for (const auto& write : writes) {
            ExpectMessage("FLR FS is read-only platform.", write);
        }
    }
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(Read("file"), "the file");
}

TEST_F(FlrfsOperations, WhatAViewDoesNotHaveIsRefused) {
    EXPECT_FALSE(operations_.IsRenameSupported());
    ExpectMessage("Not supported.", [this] { operations_.GetBackupMedia(); });
    ExpectMessage("Disks are not supported by FLR FS platform.", [this] { operations_.OpenDisk4Read(View("file")); });
    EXPECT_EQ(tests::CatchError([this] { operations_.EnumerateDirectoryContent(View("sub")); }).message,
              "fs_operations_t::EnumerateDirectoryContent");
}

/// A view that reads through a scripted backend; its links are those of the real directory.
class scripted_view_t : public flrfs_operations_t {
  public:
    explicit scripted_view_t(std::shared_ptr<fs_operations_t> inner) : flrfs_operations_t(std::move(inner)) {}
};

class FlrfsOverScript : public FlrfsOperations {
  protected:
    const std::shared_ptr<testing::StrictMock<tests::mock_fs_operations_t>> inner_ =
        std::make_shared<testing::StrictMock<tests::mock_fs_operations_t>>();
    scripted_view_t view_{inner_};
    const std::shared_ptr<file_rstream_t> stream_ = std::make_shared<tests::mock_file_rstream_t>();
};

TEST_F(FlrfsOverScript, OpeningAsksForTheLinkFirst) {
    const testing::InSequence order;
    EXPECT_CALL(*inner_, TryGetSymLinkInfo(Real("file"), _)).WillOnce(Return(false));
    EXPECT_CALL(*inner_, OpenFile4Read(Real("file"))).WillOnce(Return(stream_));
    EXPECT_EQ(view_.OpenFile4Read(View("file")), stream_);
}

TEST_F(FlrfsOverScript, ExclusiveOpenIsTheOrdinaryOne) {
    EXPECT_CALL(*inner_, TryGetSymLinkInfo(Real("file"), _)).WillOnce(Return(false));
    EXPECT_CALL(*inner_, OpenFile4Read(Real("file"))).WillOnce(Return(stream_));
    EXPECT_EQ(view_.OpenFile4ReadWithoutWriteShare(View("file")), stream_);
}

TEST_F(FlrfsOverScript, BackendsErrorsPassUnchanged) {
    EXPECT_CALL(*inner_, IsObjectExist(Real("file"))).WillOnce(testing::Throw(std::out_of_range("x")));
    EXPECT_CALL(*inner_, TryGetSymLinkInfo(Real("file"), _)).WillOnce(testing::Throw(std::length_error("x")));
    EXPECT_CALL(*inner_, GetFileMetadata(Real("file"), EFileInfoType::eFileInfoFull))
        .WillOnce(testing::Throw(std::domain_error("x")));
    EXPECT_THROW(view_.IsObjectExist(View("file")), std::out_of_range);
    EXPECT_THROW(view_.OpenFile4Read(View("file")), std::length_error);
    EXPECT_THROW(view_.GetFileMetadata(View("file"), EFileInfoType::eFileInfoFull), std::domain_error);
}

TEST_F(FlrfsOverScript, ReparsePointsAreLeftAsTheyAre) {
    const CSymlinkData point(ESymlinkType::eReparsePointDir, "/opaque");
    EXPECT_CALL(*inner_, TryGetSymLinkInfo(Real("file"), _))
        .WillOnce(testing::DoAll(testing::SetArgReferee<1>(point), Return(true)));
    CSymlinkData out;
    EXPECT_TRUE(view_.TryGetSymLinkInfo(View("file"), out));
    EXPECT_EQ(std::string(out), "/opaque");
    EXPECT_EQ(out.GetType(), ESymlinkType::eReparsePointDir);
}

}  // namespace
}  // namespace tarn
