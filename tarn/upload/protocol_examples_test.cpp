#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvel/corvel_ctx.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blocks/file_area_dev_factory.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tarn/upload/file_upload_cli.h"
#include "tarn/upload/file_upload_srv.h"
#include "tests/support/caught_error.h"
#include "tests/support/format_example.h"
#include "tests/support/log_lines.h"
#include "tests/support/recording_wstream.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/upload_kit.h"

/// The examples of docs/protocol.md are what the code sends and reads.
namespace {

using io::block::EBufTransformType;
using testing::Contains;
using testing::ElementsAre;
using tests::message_t;

constexpr std::uint32_t kVersion = brannock::transmission::kTransportVersion;
constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

std::string Example(const std::string& section) {
    return tests::FormatExample(section, "docs/protocol.md");
}

util::CFileInfo AnnsFile() {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.size = 5;
    info.owner = {"ann", 1000};
    info.group = {"staff", 50};
    info.mode = 0644;
    return info;
}

/// What a client sends when the server refuses at once.
template <class Upload>
std::string Sent(const Upload& upload) {
    const auto channel = std::make_shared<tests::scripted_dev_t>(message_t().Error("no"));
    tarn::file_upload_cli_t client(channel, kVersion, compat::SCompatibilityInfo());
    tests::CatchError([&] { upload(client); });
    return channel->output;
}

class ProtocolExamples : public testing::Test {
  protected:
    /// Serves the bytes into one stream until they end; they must be read whole.
    tests::caught_error_t Serve(const std::string& bytes) {
        channel->input = bytes;
        tarn::file_upload_srv_t server(channel, console, false, kVersion,
                                       std::make_shared<tests::recording_wstream_t>(), compat::SCompatibilityInfo());
        const auto caught = tests::CatchError([&] { server.HandleCmds(nullptr); });
        EXPECT_EQ(channel->position, bytes.size());
        return caught;
    }

    std::shared_ptr<tests::scripted_dev_t> channel = std::make_shared<tests::scripted_dev_t>();
    tests::recording_console_t console;
    std::shared_ptr<tests::probe_source_t> source = std::make_shared<tests::probe_source_t>("hello");
    tarn::inc_upload_options_t options;
    tests::log_lines_t log;
};

TEST_F(ProtocolExamples, EndOfSession) {
    channel->input = Example("Session");
    tarn::file_upload_srv_t server(channel, console, false, kVersion, compat::SCompatibilityInfo());
    server.HandleCmds(nullptr);
    EXPECT_EQ(channel->position, 4U);
}

TEST_F(ProtocolExamples, Acknowledgements) {
    EXPECT_EQ(tests::BytesWritten([](io::binary_stream_tt& stream) {
                  io::acknowledge_protocol_t(stream).SendAlreadyExistsErr("/a is there");
              }),
              Example("Acknowledgements"));
}

TEST_F(ProtocolExamples, Item) {
    EXPECT_EQ(Sent([&](tarn::file_upload_cli_t& client) {
                  client.UploadFile(kMiB, source, "/srv/a", 5, EBufTransformType::eNone, options, 1, nullptr);
              }),
              Example("Item"));
}

TEST_F(ProtocolExamples, ItemWithPermissions) {
    EXPECT_EQ(Sent([&](tarn::file_upload_cli_t& client) {
                  client.UploadFileWithPermissions(kMiB, source, "/srv/a", 5, AnnsFile(), EBufTransformType::eNone,
                                                   options, 0, nullptr);
              }),
              Example("Item with permissions"));
}

TEST_F(ProtocolExamples, HvirItem) {
    EXPECT_EQ(Sent([&](tarn::file_upload_cli_t& client) {
                  client.UploadItemHVIR(kMiB, source, std::make_shared<tarn::CFileAreaDevToken>("/srv/a"), 5,
                                        io::block::SBufCompressionSpec::GetPreserveSpec(), options, nullptr);
              }),
              Example("Item by the HVIR path"));
}

TEST_F(ProtocolExamples, File) {
    Serve(Example("File"));
    EXPECT_THAT(log.Info(), Contains("File path: [/srv/a]. Size: [5]. Is incremental: [true]."));
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
}

TEST_F(ProtocolExamples, FileWithPermissions) {
    Serve(Example("File with permissions"));
    EXPECT_THAT(log.Info(), Contains("File path: [/srv/a]. Size: [5]. Is incremental: [false]."));
    EXPECT_EQ(channel->output, message_t().Ok().U32(0).Error("Unable to receive file.").Bytes());
}

TEST_F(ProtocolExamples, ExistingFiles) {
    std::set<std::string> existing;
    EXPECT_EQ(Sent([&](tarn::file_upload_cli_t& client) {
                  client.CheckWhatFilesExist({"/srv/a", "/srv/b"}, existing);
              }),
              Example("Existing files"));

    const auto answering = std::make_shared<tests::scripted_dev_t>(Example("List of existing files"));
    tarn::file_upload_cli_t client(answering, kVersion, compat::SCompatibilityInfo());
    client.CheckWhatFilesExist({"/srv/a", "/srv/b"}, existing);
    EXPECT_THAT(existing, ElementsAre("/srv/b"));
    EXPECT_EQ(answering->position, answering->input.size());
}

TEST_F(ProtocolExamples, SymbolicLink) {
    EXPECT_EQ(Sent([](tarn::file_upload_cli_t& client) { client.UploadSymLink("/srv/l", "../a"); }),
              Example("Symbolic link"));
}

TEST_F(ProtocolExamples, Disks) {
    EXPECT_THAT(Serve(Example("Disks")).causes,
                Contains("Unable to receive disk cache. Path to disk: [/srv/d]. Path to cache: [/srv/c]."));
}

// The examples begin with the preamble and its answer, which agents exchange before the dialogue.
constexpr std::size_t kPreamble = 72;
constexpr std::size_t kAnswer = 88;

TEST_F(ProtocolExamples, SessionAtItsServer) {
    CCorvelCtx::Inst()->RegisterAreaDevFactory(std::make_shared<tarn::CFileAreaDevFactory>());
    const auto target = std::make_shared<tests::recording_wstream_t>();
    channel->input = Example("A session from its client").substr(kPreamble);
    tarn::file_upload_srv_t server(channel, console, false, kVersion, target, compat::SCompatibilityInfo());
    server.HandleCmds(nullptr);
    EXPECT_EQ(channel->output, Example("A session from its server").substr(kAnswer));
    EXPECT_EQ(channel->position, channel->input.size());
    EXPECT_EQ(target->Content(), "abc");
}

TEST_F(ProtocolExamples, SessionAtItsClient) {
    channel->input = Example("A session from its server").substr(kAnswer);
    tarn::file_upload_cli_t client(channel, kVersion, compat::SCompatibilityInfo());
    client.UploadFile(4096, std::make_shared<tests::probe_source_t>("abc"), "a", 3, EBufTransformType::eNone, options,
                      1, nullptr);
    client.WriteU32(2);
    client.Flush();
    EXPECT_EQ(channel->output, Example("A session from its client").substr(kPreamble));
    EXPECT_EQ(channel->position, channel->input.size());
}

}  // namespace
