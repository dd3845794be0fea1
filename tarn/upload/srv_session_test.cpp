#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/upload/file_upload_srv.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_lines.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/upload_kit.h"

/// The session around the commands: how it goes on, how it ends.
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::message_t;

static_assert(std::is_base_of_v<io::binary_stream_tt, tarn::file_upload_srv_t>);

constexpr std::uint32_t kVersion = brannock::transmission::kTransportVersion;

class UploadSession : public testing::Test {
  protected:
    void SetUp() override { CCorvelCtx::Inst()->RegisterAreaDevFactory(factory); }

    void Serve(const std::string& script) {
        channel->input = script;
        tarn::file_upload_srv_t server(channel, console, false, kVersion, compat::SCompatibilityInfo());
        server.HandleCmds(nullptr);
    }

    static message_t ProbeItem(const std::string& path = "/a") {
        return message_t().U32(5).Text("probe").Text(path).U64(5).U32(0).U32(0).U32(4096);
    }

    std::size_t Unread() const { return channel->input.size() - channel->position; }

    std::shared_ptr<tests::scripted_dev_t> channel = std::make_shared<tests::scripted_dev_t>();
    std::shared_ptr<tests::probe_factory_t> factory = std::make_shared<tests::probe_factory_t>();
    tests::recording_console_t console;
    tests::log_lines_t log;
};

TEST_F(UploadSession, EndsWithCommandTwoAndReadsNothingBehindIt) {
    Serve(message_t().U32(2).U32(9));
    EXPECT_THAT(log.Trace(), ElementsAre("Handling file upload commands.", "File upload commands were processed."));
    EXPECT_EQ(Unread(), 4U);
    EXPECT_EQ(channel->output, "");
}

TEST_F(UploadSession, UnknownCommandsAreLoggedAndSkipped) {
    Serve(message_t().U32(0).U32(11).U32(0xFFFFFFFF).U32(2));
    EXPECT_THAT(log.Err(), ElementsAre("HandleCmds: invalid command [0]", "HandleCmds: invalid command [11]",
                                       "HandleCmds: invalid command [4294967295]"));
    EXPECT_EQ(channel->output, "");
}

TEST_F(UploadSession, TooManyUnknownCommandsInARowEndIt) {
    message_t script;
    for (int i = 0; i < 2000; ++i) {
        script.U32(11);
    }
    const auto caught = tests::CatchError([&] { Serve(script); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Unable to process file upload commands.");
    EXPECT_THAT(caught.causes, ElementsAre("[1024] invalid commands were received one after another."));
    EXPECT_EQ(Unread(), (2000U - 1024U) * 4);
}

TEST_F(UploadSession, GoodCommandStartsTheCountAnew) {
    message_t script;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 1023; ++i) {
            script.U32(11);
        }
        script.U32(9).U32(0);
    }
    Serve(script.U32(2));
    EXPECT_EQ(log.Err().size(), 2046U);
}

TEST_F(UploadSession, ChannelThatEndsWithoutCommandTwoIsAnError) {
    for (const std::size_t length : {0U, 1U, 3U}) {
        channel = std::make_shared<tests::scripted_dev_t>();
        const auto caught = tests::CatchError([&] { Serve(std::string(length, '\x05')); });
        EXPECT_EQ(caught.message, "Unable to process file upload commands.");
        EXPECT_THAT(caught.causes,
                    ElementsAre("Failed to retrieve value from the binary stream: received less bytes (" +
                                std::to_string(length) + ") than expected (4)."));
    }
    EXPECT_THAT(log.Trace(), Contains("Failed: Handling file upload commands."));
}

TEST_F(UploadSession, ExistingTargetIsAnsweredAndComesThroughUnchanged) {
    factory->failure = [] { throw exc::CAlreadyExistsExc("/a is there"); };
    const auto caught = tests::CatchError([&] { Serve(ProbeItem().U32(2).U32(9)); });
    EXPECT_EQ(caught.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(caught.what, "/a is there");
    // One acknowledgement and no other; then exactly one more u32 is taken.
    EXPECT_EQ(channel->output, message_t().AlreadyExists("/a is there").Bytes());
    EXPECT_EQ(Unread(), 4U);
    EXPECT_GT(channel->flushes, 0);
    EXPECT_EQ(log.Info().back(), "File already exists in file_upload_srv_t::HandleCmds");
    EXPECT_THAT(log.Warn(), IsEmpty());
}

TEST_F(UploadSession, ExistingTargetComesThroughEvenWhenTheSenderIsGone) {
    factory->failure = [] { throw exc::CAlreadyExistsExc("/a is there"); };
    const auto caught = tests::CatchError([&] { Serve(ProbeItem()); });
    EXPECT_EQ(caught.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(caught.what, "/a is there");
    EXPECT_THAT(log.Warn(), ElementsAre("Failed to tell the sender that the file already exists."));
}

TEST_F(UploadSession, ExistingTargetComesThroughEvenWhenTheAnswerCannotBeSent) {
    factory->failure = [] { throw exc::CAlreadyExistsExc("/a is there"); };
    channel->room = 3;
    const auto caught = tests::CatchError([&] { Serve(ProbeItem().U32(2)); });
    EXPECT_EQ(caught.type, "exc::CAlreadyExistsExc");
    EXPECT_THAT(log.Warn(), ElementsAre("Failed to tell the sender that the file already exists."));
    EXPECT_EQ(Unread(), 4U);
}

TEST_F(UploadSession, DisksAreRefusedOnceTheirMessageIsRead) {
    const auto content = tests::CatchError([&] { Serve(message_t().U32(3).Text("/d").Text("/b").U64(7).U32(4096)); });
    EXPECT_EQ(content.type, "exc::CRuntimeExc");
    EXPECT_EQ(content.message, "Unable to process file upload commands.");
    EXPECT_THAT(
        content.causes,
        ElementsAre("Unable to receive disk content. Path to disk descriptor: [/d]. Path to disk content: [/b].",
                    "Disks are not supported."));
    EXPECT_EQ(Unread(), 0U);

    channel = std::make_shared<tests::scripted_dev_t>();
    const auto cache =
        tests::CatchError([&] { Serve(message_t().U32(7).Text("/d").Text("/b").Text("/c").U64(7).U32(4096)); });
    EXPECT_THAT(cache.causes, ElementsAre("Unable to receive disk cache. Path to disk: [/d]. Path to cache: [/c].",
                                          "Disks are not supported."));
    EXPECT_EQ(Unread(), 0U);
    EXPECT_EQ(channel->output, "");
}

}  // namespace
