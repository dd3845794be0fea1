#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/file_area_dev_factory.h"
#include "tarn/upload/file_upload_srv.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_lines.h"
#include "tests/support/recording_wstream.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/temp_dir.h"
#include "tests/support/upload_kit.h"

/// Commands 1, 4, 5, 6 and 8 up to the point where the content would come: what is read, opened, logged and answered.
namespace {

using brannock::transmission::net::netmngr_cfg_t;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tests::message_t;

constexpr std::uint32_t kVersion = brannock::transmission::kTransportVersion;
constexpr const char* kShort = "Failed to retrieve value from the binary stream: received less bytes";

class UploadSrvItems : public testing::Test {
  protected:
    void SetUp() override {
        CCorvelCtx::Inst()->RegisterAreaDevFactory(factory);
        CCorvelCtx::Inst()->RegisterAreaDevFactory(std::make_shared<tarn::CFileAreaDevFactory>());
    }

    /// Serves a script that ends somewhere; what comes out is the error of the end.
    tests::caught_error_t Serve(const std::string& script) {
        channel->input = script;
        tarn::file_upload_srv_t server(channel, console, false, kVersion, compat::SCompatibilityInfo());
        return tests::CatchError([&] { server.HandleCmds(nullptr); });
    }

    tests::caught_error_t ServeIntoStream(const std::string& script,
                                          const std::shared_ptr<tarn::file_wstream_t>& stream) {
        channel->input = script;
        tarn::file_upload_srv_t server(channel, console, false, kVersion, stream, compat::SCompatibilityInfo());
        return tests::CatchError([&] { server.HandleCmds(nullptr); });
    }

    std::string Path(const std::string& name) const { return dir / name; }

    std::size_t Unread() const { return channel->input.size() - channel->position; }

    std::shared_ptr<tests::scripted_dev_t> channel = std::make_shared<tests::scripted_dev_t>();
    std::shared_ptr<tests::probe_factory_t> factory = std::make_shared<tests::probe_factory_t>();
    tests::recording_console_t console;
    tests::temp_dir_t dir;
    tests::log_lines_t log;
};

TEST_F(UploadSrvItems, ItemIsOpenedAsItsMessageSays) {
    Serve(message_t().U32(5).Text("probe").Text("/a").U64(77).U32(2).U32(0x100).U32(4096));
    EXPECT_THAT(factory->calls, ElementsAre("LoadToken probe </a>", "CreateWriteDev </a> incremental overwrite 77"));
    EXPECT_THAT(log.Info(), ElementsAre("Item type: [probe]. Path: [</a>]. Size: [77]. Is incremental: [true].",
                                        "Overwrite flag: [true].", "Negotiating multi-threaded download settings."));
    EXPECT_THAT(log.Trace(), Contains("Receiving file..."));
    // The creation is acknowledged, no keysets are asked for; then the channel ends and the failure is told.
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
}

TEST_F(UploadSrvItems, FlagsOfZeroAreFalse) {
    Serve(message_t().U32(5).Text("probe").Text("/a").U64(77).U32(0).U32(0).U32(4096));
    EXPECT_THAT(factory->calls, ElementsAre("LoadToken probe </a>", "CreateWriteDev </a> 77"));
    EXPECT_THAT(log.Info(), Contains("Item type: [probe]. Path: [</a>]. Size: [77]. Is incremental: [false]."));
    EXPECT_THAT(log.Info(), Contains("Overwrite flag: [false]."));
}

TEST_F(UploadSrvItems, KeysetsAreAskedForAndRefusedWhenDecryptionIsEnabled) {
    channel->input = message_t().U32(5).Text("probe").Text("/a").U64(77).U32(0).U32(0).U32(4096).U32(2);
    tarn::file_upload_srv_t server(channel, console, false, kVersion, compat::SCompatibilityInfo());
    server.EnableUploadDecryption();
    const auto caught = tests::CatchError([&] { server.HandleCmds(nullptr); });
    EXPECT_THAT(caught.causes, ElementsAre("Unable to receive file.", "Keysets are not supported."));
    EXPECT_EQ(channel->output, message_t().Ok().U32(1).Error("Unable to receive file.").Bytes());
    EXPECT_EQ(Unread(), 4U);
}

TEST_F(UploadSrvItems, FailureIsWrappedTwice) {
    const auto caught = Serve(message_t().U32(5).Text("probe").Text("/a").U64(77).U32(0).U32(0).U32(4096));
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Unable to process file upload commands.");
    ASSERT_GE(caught.causes.size(), 2U);
    EXPECT_EQ(caught.causes[0], "Unable to receive file.");
    EXPECT_THAT(caught.causes.back(), StartsWith(kShort));
    EXPECT_THAT(log.Trace(), Contains("Failed: Receiving file..."));
}

TEST_F(UploadSrvItems, RefusedItemIsToldTwice) {
    factory->failure = [] { throw exc::CRuntimeExc("no room"); };
    const auto caught = Serve(message_t().U32(5).Text("probe").Text("/a").U64(77).U32(0).U32(0).U32(4096).U32(2));
    EXPECT_THAT(caught.causes, ElementsAre("Unable to receive file.", "no room"));
    EXPECT_EQ(channel->output, message_t().Error("no room").Error("Unable to receive file.").Bytes());
    EXPECT_EQ(Unread(), 4U);
    EXPECT_FALSE(log.Err("exc").empty());
}

TEST_F(UploadSrvItems, UnknownTypeIsAnErrorBeforeAnythingIsOpened) {
    const auto caught = Serve(message_t().U32(5).Text("nobody's").Text("/a").U64(77).U32(0).U32(0).U32(4096));
    EXPECT_THAT(caught.causes, ElementsAre("Unable to receive file.",
                                           "Area device factory for token type [nobody's] is not registered."));
    EXPECT_EQ(channel->output, message_t().Error("Unable to receive file.").Bytes());
}

TEST_F(UploadSrvItems, LongTypeWordIsRefused) {
    const auto caught = Serve(message_t().U32(5).Text(std::string(257, 't')));
    EXPECT_THAT(caught.causes.back(), "String of [257] bytes in the binary stream is longer than the allowed [256].");
}

TEST_F(UploadSrvItems, ItemWithPermissionsCarriesAFileInfoAtItsEnd) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    const std::string bytes = tests::BytesWritten([&](io::binary_stream_tt& stream) { info.Serialize(stream); });
    Serve(message_t().U32(6).Text("probe").Text("/a").U64(77).U32(0).U32(0).U32(4096).Raw(bytes));
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
    // One byte short, and nothing is opened.
    factory->calls.clear();
    channel = std::make_shared<tests::scripted_dev_t>();
    Serve(message_t().U32(6).Text("probe").Text("/a").U64(77).U32(0).U32(0).U32(4096).Raw(bytes.substr(1)));
    EXPECT_THAT(factory->calls, ElementsAre("LoadToken probe </a>"));
    EXPECT_EQ(channel->output, message_t().Error("Unable to receive file.").Bytes());
}

TEST_F(UploadSrvItems, HvirItemHasNoOverwriteValueAndItsOwnWayToOpen) {
    Serve(message_t().U32(8).Text("probe").Text("/a").U64(77).U32(1).U32(4096));
    EXPECT_THAT(factory->calls, ElementsAre("LoadToken probe </a>", "CreateWriteDevForHVIR </a> 77"));
    EXPECT_THAT(log.Info(), ElementsAre("Item type: [probe]. Path: [</a>]. Size: [77]. Is incremental: [true].",
                                        "Negotiating multi-threaded download settings."));
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
}

TEST_F(UploadSrvItems, RefusedHvirItemIsToldTwice) {
    const auto caught = Serve(message_t().U32(8).Text("file").Text(Path("a")).U64(7).U32(0).U32(4096));
    EXPECT_THAT(caught.causes,
                ElementsAre("Unable to receive file.", "CFileAreaDevFactory::CreateWriteDevForHVIR not implemented"));
    EXPECT_EQ(channel->output, message_t()
                                   .Error("CFileAreaDevFactory::CreateWriteDevForHVIR not implemented")
                                   .Error("Unable to receive file.")
                                   .Bytes());
    EXPECT_FALSE(log.Err("exc").empty());
}

TEST_F(UploadSrvItems, ExistingTargetOfAnHvirItemIsKeptApart) {
    factory->failure = [] { throw exc::CAlreadyExistsExc("/a is there"); };
    const auto caught = Serve(message_t().U32(8).Text("probe").Text("/a").U64(77).U32(1).U32(4096).U32(2));
    EXPECT_EQ(caught.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(channel->output, message_t().AlreadyExists("/a is there").Bytes());
}

TEST_F(UploadSrvItems, PresetStreamReplacesTheOpeningButNotTheReading) {
    const auto stream = std::make_shared<tests::recording_wstream_t>();
    ServeIntoStream(message_t().U32(5).Text("probe").Text("/a").U64(77).U32(0).U32(0).U32(4096), stream);
    EXPECT_THAT(factory->calls, ElementsAre("LoadToken probe </a>"));
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
    channel = std::make_shared<tests::scripted_dev_t>();
    ServeIntoStream(message_t().U32(1).Text(Path("a")).U64(77).U32(0).U32(4096), stream);
    EXPECT_FALSE(std::filesystem::exists(Path("a")));
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
}

TEST_F(UploadSrvItems, HvirItemDoesNotGoIntoThePresetStream) {
    const auto stream = std::make_shared<tests::recording_wstream_t>();
    ServeIntoStream(message_t().U32(8).Text("probe").Text("/a").U64(77).U32(1).U32(4096), stream);
    EXPECT_THAT(factory->calls, Contains("CreateWriteDevForHVIR </a> 77"));
}

TEST_F(UploadSrvItems, FileIsCreatedAtItsSize) {
    Serve(message_t().U32(1).Text(Path("a")).U64(77).U32(0).U32(4096));
    EXPECT_THAT(log.Info(), Contains("File path: [" + Path("a") + "]. Size: [77]. Is incremental: [false]."));
    EXPECT_THAT(log.Trace(), Contains("Receiving file..."));
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
    EXPECT_EQ(std::filesystem::file_size(Path("a")), 77U);
}

TEST_F(UploadSrvItems, FileReplacesWhatIsThere) {
    std::ofstream(Path("a")) << "0123456789";
    Serve(message_t().U32(1).Text(Path("a")).U64(3).U32(0).U32(4096));
    EXPECT_EQ(std::filesystem::file_size(Path("a")), 3U);
}

TEST_F(UploadSrvItems, IncrementalFileMustExist) {
    const auto missing = Serve(message_t().U32(1).Text(Path("a")).U64(3).U32(7).U32(4096));
    EXPECT_THAT(log.Info(), Contains("File path: [" + Path("a") + "]. Size: [3]. Is incremental: [true]."));
    ASSERT_GE(missing.causes.size(), 2U);
    EXPECT_EQ(missing.causes[0], "Unable to receive file.");
    // The reason goes first, with every cause, and the general text after it.
    EXPECT_THAT(channel->output, HasSubstr(missing.causes[1]));
    EXPECT_THAT(channel->output, testing::EndsWith(message_t().Error("Unable to receive file.").Bytes()));
    EXPECT_FALSE(std::filesystem::exists(Path("a")));

    std::ofstream(Path("b")) << "0123456789";
    channel = std::make_shared<tests::scripted_dev_t>();
    Serve(message_t().U32(1).Text(Path("b")).U64(3).U32(1).U32(4096));
    EXPECT_EQ(std::filesystem::file_size(Path("b")), 3U);
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
}

TEST_F(UploadSrvItems, ExistingTargetOfAFileIsKeptApart) {
    CCorvelCtx::Inst()->SetRelativePathMapper(
        [](const std::string& path) -> std::string { throw exc::CAlreadyExistsExc(path + " is there"); });
    const auto caught = Serve(message_t().U32(1).Text("a").U64(3).U32(0).U32(4096).U32(2));
    CCorvelCtx::Inst()->SetRelativePathMapper({});
    EXPECT_EQ(caught.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(channel->output, message_t().AlreadyExists("a is there").Bytes());
}

TEST_F(UploadSrvItems, PathOverTheLimitIsRefused) {
    const auto caught = Serve(message_t().U32(1).Text(std::string(65537, 'p')));
    EXPECT_THAT(caught.causes.back(),
                "String of [65537] bytes in the binary stream is longer than the allowed [65536].");
}

TEST_F(UploadSrvItems, DialogueStartsNoThread) {
    const auto threads = [] {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return std::distance(begin(tasks), end(tasks));
    };
    const auto before = threads();
    std::ptrdiff_t during = 0;
    factory->failure = [&] {
        during = threads();
        throw exc::CRuntimeExc("no room");
    };
    Serve(message_t()
              .U32(9)
              .U32(0)
              .U32(10)
              .Text(Path("l"))
              .Text("x")
              .U32(5)
              .Text("probe")
              .Text("/a")
              .U64(77)
              .U32(0)
              .U32(0)
              .U32(4096));
    EXPECT_EQ(during, before);
}

TEST_F(UploadSrvItems, AnswerThatCannotBeSentEndsTheSession) {
    channel->room = 2;
    const auto caught = Serve(message_t().U32(5).Text("probe").Text("/a").U64(77).U32(0).U32(0).U32(4096));
    EXPECT_EQ(caught.message, "Unable to process file upload commands.");
    EXPECT_THAT(caught.causes, ElementsAre("Unable to receive file.",
                                           "Failed to write value to the binary stream: written less bytes (2) than "
                                           "expected (4)."));
    EXPECT_EQ(channel->output, std::string(2, '\0'));
}

TEST_F(UploadSrvItems, NetworkProposalThatCanBeRunIsTaken) {
    const netmngr_cfg_t proposal = netmngr_cfg_t::GetRecommendedCfg(kVersion);
    Serve(message_t().U32(5).Text("probe").Text("/a").U64(7).U32(0).U32(0).U32(4096).Raw(tests::BytesOf(proposal)));
    EXPECT_THAT(channel->output, StartsWith(message_t().Ok().U32(0).Raw(tests::BytesOf(proposal)).Bytes()));
    EXPECT_THAT(log.Info(),
                Contains(proposal.IsMultiStreamingEnabled() ? "Multi-threaded download algorithm is enabled."
                                                            : "Multi-threaded download algorithm is disabled."));
    EXPECT_THAT(log.Warn(), IsEmpty());
}

TEST_F(UploadSrvItems, BlockSizeOutOfRangeIsRefusedBeforeContentIsRead) {
    const std::string proposal = tests::BytesOf(netmngr_cfg_t());
    for (const std::uint32_t blockSize : {0U, 4095U, 16777217U, 0xFFFFFFFFU}) {
        channel = std::make_shared<tests::scripted_dev_t>();
        const auto caught =
            Serve(message_t().U32(5).Text("probe").Text("/a").U64(7).U32(0).U32(0).U32(blockSize).Raw(proposal).U32(2));
        EXPECT_THAT(caught.causes, ElementsAre("Unable to receive file.",
                                               "Block size [" + std::to_string(blockSize) + "] is out of range."));
        EXPECT_EQ(Unread(), 4U);
        EXPECT_EQ(channel->output, message_t().Ok().U32(0).Raw(proposal).Error("Unable to receive file.").Bytes());
    }
}

}  // namespace
