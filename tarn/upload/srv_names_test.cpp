#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/upload/file_upload_srv.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_lines.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/temp_dir.h"
#include "tests/support/upload_kit.h"

/// Commands 9 and 10: existing files and symbolic links.
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tests::message_t;

class UploadSrvNames : public testing::Test {
  protected:
    void Serve(const std::string& script) {
        channel->input = script;
        tarn::file_upload_srv_t server(channel, console, false, 1, compat::SCompatibilityInfo());
        server.HandleCmds(nullptr);
    }

    void ServeLink(const std::string& path, const std::string& contents) {
        Serve(message_t().U32(10).Text(path).Text(contents).U32(2));
    }

    std::string Path(const std::string& name) const { return dir / name; }

    std::string MakeFile(const std::string& name) const {
        std::ofstream(Path(name)) << name;
        return Path(name);
    }

    std::shared_ptr<tests::scripted_dev_t> channel = std::make_shared<tests::scripted_dev_t>();
    tests::recording_console_t console;
    tests::temp_dir_t dir;
    tests::log_lines_t log;
};

TEST_F(UploadSrvNames, ExistingPathsComeBackInTheOrderAskedFor) {
    const std::string b = MakeFile("b");
    const std::string a = MakeFile("a");
    Serve(message_t().U32(9).U32(6).Text(b).Text(Path("no")).Text(a).Text(b).Text(Path("")).Text("").U32(2));
    // The folder counts, the empty path does not, what was asked twice is told twice.
    EXPECT_EQ(channel->output, message_t().Ok().U32(4).Text(b).Text(a).Text(b).Text(Path("")).Bytes());
}

TEST_F(UploadSrvNames, NoPathsAreAnsweredWithNone) {
    Serve(message_t().U32(9).U32(0).U32(2));
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Bytes());
}

TEST_F(UploadSrvNames, AnswerIsFlushed) {
    channel->input = message_t().U32(9).U32(0).U32(2);
    tarn::file_upload_srv_t server(channel, console, false, 1, compat::SCompatibilityInfo());
    const int before = channel->flushes;
    server.HandleCmds(nullptr);
    EXPECT_GE(channel->flushes, before + 2);
}

TEST_F(UploadSrvNames, FailedQueryIsToldWithItsOwnText) {
    const auto caught = tests::CatchError([&] { Serve(message_t().U32(9).U32(1).Text("tdatafs://x")); });
    EXPECT_EQ(caught.message, "Unable to process file upload commands.");
    EXPECT_THAT(caught.causes, ElementsAre("Failed to enumerate existing files.", "TapeDataFs not supported."));
    EXPECT_EQ(channel->output, message_t().Error("TapeDataFs not supported.").Bytes());
}

TEST_F(UploadSrvNames, FailedQueryThatCannotBeToldEndsWithTheChannelsError) {
    channel->room = 2;
    const auto caught = tests::CatchError([&] { Serve(message_t().U32(9).U32(1).Text("tdatafs://x")); });
    EXPECT_EQ(caught.message, "Unable to process file upload commands.");
    EXPECT_THAT(caught.causes, ElementsAre("Failed to write value to the binary stream: written less bytes (2) than "
                                           "expected (4)."));
}

TEST_F(UploadSrvNames, QueryIsReadWholeBeforeItFails) {
    EXPECT_EQ(tests::CatchError([&] { Serve(message_t().U32(9).U32(2).Text("tdatafs://x").Text(Path("a"))); }).message,
              "Unable to process file upload commands.");
    EXPECT_EQ(channel->position, channel->input.size());
}

TEST_F(UploadSrvNames, LongListIsRefusedUnread) {
    const auto caught = tests::CatchError([&] { Serve(message_t().U32(9).U32(1'000'001).Text("/a")); });
    EXPECT_THAT(caught.causes, ElementsAre("Failed to enumerate existing files.",
                                           "List of [1000001] paths is longer than the allowed [1000000]."));
    EXPECT_EQ(channel->output,
              message_t().Error("List of [1000001] paths is longer than the allowed [1000000].").Bytes());
    EXPECT_EQ(channel->input.size() - channel->position, 6U);
}

TEST_F(UploadSrvNames, CountThatLiesCostsNothing) {
    const auto caught = tests::CatchError([&] { Serve(message_t().U32(9).U32(1'000'000).Text("/a").U32(0xFFFFFFFF)); });
    EXPECT_THAT(caught.causes.back(),
                "String of [4294967295] bytes in the binary stream is longer than the allowed [65536].");
    EXPECT_LE(channel->largestRead, 65536U);
}

TEST_F(UploadSrvNames, PathsOfAListHaveALimitTogether) {
    message_t script;
    script.U32(9).U32(1025);
    const std::string path(65536, 'p');
    for (int i = 0; i < 1025; ++i) {
        script.Text(path);
    }
    EXPECT_THAT(tests::CatchError([&] { Serve(script); }).causes.back(),
                "Paths of a list are longer than the allowed [67108864] bytes together.");
}

TEST_F(UploadSrvNames, LinkIsMadeWithItsContents) {
    ServeLink(Path("link"), "../some/where\xff");
    EXPECT_EQ(fs::read_symlink(Path("link")), "../some/where\xff");
    EXPECT_EQ(channel->output, message_t().Ok().Bytes());
    EXPECT_THAT(log.Trace(), Contains("Receiving symbolic link..."));
    EXPECT_THAT(log.Trace(), Not(Contains("Failed: Receiving symbolic link...")));
    EXPECT_THAT(log.Info(), ElementsAre("Link path: [" + Path("link") + "]. Link contents: [../some/where\xff]."));
}

TEST_F(UploadSrvNames, FileInTheWayIsDeleted) {
    MakeFile("link");
    ServeLink(Path("link"), "there");
    EXPECT_EQ(fs::read_symlink(Path("link")), "there");
    EXPECT_THAT(log.Info(), Contains("Removing existing file [" + Path("link") + "]."));
}

TEST_F(UploadSrvNames, LinkInTheWayIsDeletedAndItsTargetStays) {
    const std::string target = MakeFile("target");
    fs::create_symlink(target, Path("link"));
    ServeLink(Path("link"), "there");
    EXPECT_EQ(fs::read_symlink(Path("link")), "there");
    EXPECT_TRUE(fs::exists(target));
    EXPECT_THAT(log.Info(), Contains("Removing existing file [" + Path("link") + "]."));
}

TEST_F(UploadSrvNames, DanglingLinkInTheWayIsDeleted) {
    fs::create_symlink("nowhere", Path("link"));
    ServeLink(Path("link"), "there");
    EXPECT_EQ(fs::read_symlink(Path("link")), "there");
    EXPECT_THAT(log.Info(), Contains("Removing existing file [" + Path("link") + "]."));
}

TEST_F(UploadSrvNames, FailedLinkIsToldWithItsOwnText) {
    const auto caught = tests::CatchError([&] { ServeLink("tdatafs://x", "there"); });
    EXPECT_EQ(caught.message, "Unable to process file upload commands.");
    EXPECT_THAT(caught.causes, ElementsAre("Failed to receive symbolic link.", "TapeDataFs not supported."));
    EXPECT_EQ(channel->output, message_t().Error("TapeDataFs not supported.").Bytes());
    EXPECT_THAT(log.Trace(), Contains("Failed: Receiving symbolic link..."));
}

TEST_F(UploadSrvNames, FailedLinkKeepsItsReasonWhenTheSenderIsGone) {
    channel->room = 2;
    EXPECT_THAT(tests::CatchError([&] { ServeLink("tdatafs://x", "there"); }).causes,
                ElementsAre("Failed to receive symbolic link.", "TapeDataFs not supported."));
}

TEST_F(UploadSrvNames, ExistingTargetIsKeptApart) {
    CCorvelCtx::Inst()->SetRelativePathMapper(
        [](const std::string& path) -> std::string { throw exc::CAlreadyExistsExc(path + " is there"); });
    const auto caught = tests::CatchError([&] { ServeLink("l", "there"); });
    CCorvelCtx::Inst()->SetRelativePathMapper({});
    EXPECT_EQ(caught.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(channel->output, message_t().AlreadyExists("l is there").Bytes());
}

}  // namespace
