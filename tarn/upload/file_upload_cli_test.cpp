#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str_format.h"
#include "mirrowen/util/type_name.h"
#include "tarn/upload/file_upload_cli.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_lines.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/upload_kit.h"

/// The client against a scripted server, up to the point where the content would go.
namespace {

using brannock::transmission::net::netmngr_cfg_t;
using io::block::EBufTransformType;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using tests::message_t;

constexpr std::uint32_t kVersion = brannock::transmission::kTransportVersion;
constexpr const char* kItemFailed =
    "Failed to upload item. Datasource: [probe source]. Target item type: [probe]. Target path: [</a>].";

const std::string kTooLarge = util::str_format("Unable to cast value from [%1] to [%2].",
                                               util::type_name<std::uint64_t>(), util::type_name<std::uint32_t>());

static_assert(std::is_base_of_v<io::binary_stream_tt, tarn::file_upload_cli_t>);

class FileUploadCli : public testing::Test {
  protected:
    std::shared_ptr<tarn::file_upload_cli_t> Client(const std::string& answers) {
        channel->input = answers;
        return tarn::file_upload_cli_t::Create(channel, kVersion, compat::SCompatibilityInfo());
    }

    /// Runs an upload that the server refuses at once.
    template <class Upload>
    tests::caught_error_t Refused(const Upload& upload) {
        channel = std::make_shared<tests::scripted_dev_t>();
        return tests::CatchError([&] { upload(*Client(message_t().Error("no room"))); });
    }

    static message_t ItemMessage(std::uint32_t code) {
        return message_t().U32(code).Text("probe").Text("/a").U64(5).U32(0).U32(1).U32(4096);
    }

    std::shared_ptr<tests::scripted_dev_t> channel = std::make_shared<tests::scripted_dev_t>();
    std::shared_ptr<tests::probe_source_t> source = std::make_shared<tests::probe_source_t>("hello");
    std::shared_ptr<tests::probe_token_t> token = std::make_shared<tests::probe_token_t>("/a");
    tarn::inc_upload_options_t options;
    tests::log_lines_t log;
};

TEST_F(FileUploadCli, ItemIsCommandFive) {
    const auto caught = Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadItem(4096, source, token, 5, EBufTransformType::eNone, options, 1, nullptr);
    });
    EXPECT_EQ(channel->output, ItemMessage(5).Bytes());
    EXPECT_GT(channel->flushes, 0);
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, kItemFailed);
    EXPECT_THAT(caught.causes, ElementsAre("no room"));
    EXPECT_THAT(log.Trace(),
                ElementsAre("Uploading item. Datasource: [probe source]. Target item type: [probe]. Target file path: "
                            "[</a>].",
                            "Failed: Uploading item. Datasource: [probe source]. Target item type: [probe]. Target "
                            "file path: [</a>]."));
}

TEST_F(FileUploadCli, OptionsAndValuesTravelAsTheyAre) {
    options.incremental = true;
    Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadItem(0xFFFFFFFF, source, token, 0x0123456789ABCDEF, EBufTransformType::eNone, options, 0xFFFFFFFE,
                          nullptr);
    });
    EXPECT_EQ(channel->output, message_t()
                                   .U32(5)
                                   .Text("probe")
                                   .Text("/a")
                                   .U64(0x0123456789ABCDEF)
                                   .U32(1)
                                   .U32(0xFFFFFFFE)
                                   .U32(0xFFFFFFFF)
                                   .Bytes());
}

TEST_F(FileUploadCli, ItemWithPermissionsIsCommandSixAndEndsWithThem) {
    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    info.owner = {"ann", 1000};
    Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadItemWithPermissions(4096, source, token, 5, info, EBufTransformType::eNone, options, 1, nullptr);
    });
    EXPECT_EQ(
        channel->output,
        ItemMessage(6).Raw(tests::BytesWritten([&](io::binary_stream_tt& stream) { info.Serialize(stream); })).Bytes());
}

TEST_F(FileUploadCli, UnsetPermissionsMakeAPlainItem) {
    Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadItemWithPermissions(4096, source, token, 5, util::CFileInfo(), EBufTransformType::eNone, options,
                                         1, nullptr);
    });
    EXPECT_EQ(channel->output, ItemMessage(5).Bytes());
}

TEST_F(FileUploadCli, FileIsAnItemOfTypeFile) {
    const auto caught = Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadFile(4096, source, "/srv/a", 5, EBufTransformType::eNone, options, 1, nullptr);
    });
    EXPECT_EQ(channel->output, message_t().U32(5).Text("file").Text("/srv/a").U64(5).U32(0).U32(1).U32(4096).Bytes());
    EXPECT_EQ(caught.message,
              "Failed to upload item. Datasource: [probe source]. Target item type: [file]. Target path: [/srv/a].");

    util::CFileInfo info;
    info.type = util::EFileType::eRegular;
    Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadFileWithPermissions(4096, source, "/srv/a", 5, info, EBufTransformType::eNone, options, 0,
                                         nullptr);
    });
    EXPECT_EQ(channel->output,
              message_t()
                  .U32(6)
                  .Text("file")
                  .Text("/srv/a")
                  .U64(5)
                  .U32(0)
                  .U32(0)
                  .U32(4096)
                  .Raw(tests::BytesWritten([&](io::binary_stream_tt& stream) { info.Serialize(stream); }))
                  .Bytes());
}

TEST_F(FileUploadCli, HvirItemHasNeitherOverwriteNorPermissions) {
    options.incremental = true;
    const auto caught = Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadItemHVIR(4096, source, token, 5, io::block::SBufCompressionSpec::GetPreserveSpec(), options,
                              nullptr);
    });
    EXPECT_EQ(channel->output, message_t().U32(8).Text("probe").Text("/a").U64(5).U32(1).U32(4096).Bytes());
    EXPECT_EQ(caught.message, kItemFailed);
}

TEST_F(FileUploadCli, BlockSizeThatDoesNotFitIsRefusedBeforeAnythingIsSent) {
    const std::uint64_t large = std::uint64_t{1} << 32;
    const auto item = Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadItem(large, source, token, 5, EBufTransformType::eNone, options, 1, nullptr);
    });
    EXPECT_EQ(item.message, kItemFailed);
    EXPECT_THAT(item.causes, ElementsAre(kTooLarge));
    EXPECT_EQ(channel->output, "");
    const auto hvir = Refused([&](tarn::file_upload_cli_t& client) {
        client.UploadItemHVIR(large, source, token, 5, io::block::SBufCompressionSpec::GetPreserveSpec(), options,
                              nullptr);
    });
    EXPECT_THAT(hvir.causes, ElementsAre(kTooLarge));
    EXPECT_EQ(channel->output, "");
}

TEST_F(FileUploadCli, ExistingTargetComesThroughUnwrapped) {
    const auto answers = message_t().AlreadyExists("/a is there");
    const auto item = tests::CatchError(
        [&] { Client(answers)->UploadItem(4096, source, token, 5, EBufTransformType::eNone, options, 0, nullptr); });
    EXPECT_EQ(item.type, "exc::CAlreadyExistsExc");
    EXPECT_EQ(item.what, "/a is there");

    channel = std::make_shared<tests::scripted_dev_t>();
    const auto link = tests::CatchError([&] { Client(answers)->UploadSymLink("/a", "b"); });
    EXPECT_EQ(link.type, "exc::CAlreadyExistsExc");

    channel = std::make_shared<tests::scripted_dev_t>();
    const auto hvir = tests::CatchError([&] {
        Client(answers)->UploadItemHVIR(4096, source, token, 5, io::block::SBufCompressionSpec::GetPreserveSpec(),
                                        options, nullptr);
    });
    EXPECT_EQ(hvir.type, "exc::CAlreadyExistsExc");
}

TEST_F(FileUploadCli, OnlyTheFirstOfTwoErrorsIsRead) {
    const auto caught = tests::CatchError([&] {
        Client(message_t().Error("no room").Error("Unable to receive file."))
            ->UploadItem(4096, source, token, 5, EBufTransformType::eNone, options, 0, nullptr);
    });
    EXPECT_THAT(caught.causes, ElementsAre("no room"));
    EXPECT_EQ(channel->input.size() - channel->position, message_t().Error("Unable to receive file.").Bytes().size());
}

TEST_F(FileUploadCli, KeysetsAreNotSupported) {
    const auto caught = tests::CatchError([&] {
        Client(message_t().Ok().U32(1))
            ->UploadItem(4096, source, token, 5, EBufTransformType::eNone, options, 1, nullptr);
    });
    EXPECT_EQ(caught.message, kItemFailed);
    EXPECT_THAT(caught.causes, ElementsAre("Keysets are not supported."));
    EXPECT_EQ(channel->output, ItemMessage(5).Bytes());
}

TEST_F(FileUploadCli, ProposalIsSentAndTheChoiceRead) {
    const netmngr_cfg_t proposal = netmngr_cfg_t::GetRecommendedCfg(kVersion);
    const auto caught = tests::CatchError([&] {
        Client(message_t().Ok().U32(0))
            ->UploadItem(4096, source, token, 5, EBufTransformType::eNone, options, 1, nullptr);
    });
    EXPECT_EQ(caught.message, kItemFailed);
    EXPECT_EQ(channel->output, ItemMessage(5).Raw(tests::BytesOf(proposal)).Bytes());
    EXPECT_THAT(log.Info(), ElementsAre("Traffic compression is disabled.",
                                        proposal.IsMultiStreamingEnabled()
                                            ? "Checking whether multi-threaded upload is supported by client."
                                            : "Forcing client to use one channel for download."));
}

TEST_F(FileUploadCli, ForcedCompressionIsLoggedUnlessItHasNoRealType) {
    const auto upload = [&](const io::block::SBufCompressionSpec& spec) {
        channel = std::make_shared<tests::scripted_dev_t>();
        log.Clear();
        tests::CatchError(
            [&] { Client(message_t().Ok().U32(0))->UploadItemHVIR(4096, source, token, 5, spec, options, nullptr); });
        return log.Info().front();
    };
    using io::block::SBufCompressionSpec;
    EXPECT_EQ(upload(SBufCompressionSpec(EBufTransformType::eLz4)), "Traffic compression level: 'lz4'.");
    EXPECT_EQ(upload(SBufCompressionSpec(EBufTransformType::eZstd)), "Traffic compression level: 'zstd'.");
    EXPECT_EQ(upload(SBufCompressionSpec(EBufTransformType::eNone)), "Traffic compression is disabled.");
    EXPECT_EQ(upload(SBufCompressionSpec::GetPreserveSpec()), "Traffic compression is disabled.");
}

TEST_F(FileUploadCli, LinkIsCommandTen) {
    Client(message_t().Ok())->UploadSymLink("/l", "../a");
    EXPECT_EQ(channel->output, message_t().U32(10).Text("/l").Text("../a").Bytes());
    EXPECT_GT(channel->flushes, 0);
    EXPECT_THAT(log.Trace(), ElementsAre("Creating symbolic link [/l] pointing to [../a] on target."));
}

TEST_F(FileUploadCli, FailedLinkHasItsOwnText) {
    const auto caught = tests::CatchError([&] { Client(message_t().Error("read-only"))->UploadSymLink("/l", "../a"); });
    EXPECT_EQ(caught.type, "exc::CRuntimeExc");
    EXPECT_EQ(caught.message, "Failed to upload symbolic link on target.");
    EXPECT_THAT(caught.causes, ElementsAre("read-only"));
}

TEST_F(FileUploadCli, ExistingFilesAreAddedToTheSet) {
    std::set<std::string> existing{"/kept"};
    Client(message_t().Ok().U32(2).Text("/b").Text("/a"))->CheckWhatFilesExist({"/a", "/b", "/c"}, existing);
    EXPECT_EQ(channel->output, message_t().U32(9).U32(3).Text("/a").Text("/b").Text("/c").Bytes());
    EXPECT_THAT(existing, ElementsAre("/a", "/b", "/kept"));
    EXPECT_GT(channel->flushes, 0);
}

TEST_F(FileUploadCli, NoPathsMayBeAskedFor) {
    std::set<std::string> existing;
    Client(message_t().Ok().U32(0))->CheckWhatFilesExist({}, existing);
    EXPECT_EQ(channel->output, message_t().U32(9).U32(0).Bytes());
    EXPECT_THAT(existing, IsEmpty());
}

TEST_F(FileUploadCli, MoreExistingFilesThanAskedForAreRefused) {
    std::set<std::string> existing;
    const auto caught = tests::CatchError([&] {
        Client(message_t().Ok().U32(0xFFFFFFFF).Text("/a"))->CheckWhatFilesExist({"/a", "/b"}, existing);
    });
    EXPECT_EQ(caught.message, "Failed to enumerate existing files on target.");
    EXPECT_THAT(caught.causes, ElementsAre("List of [4294967295] paths is longer than the allowed [2]."));
    EXPECT_THAT(existing, IsEmpty());
}

TEST_F(FileUploadCli, FailedQueryHasItsOwnTextAndLeavesTheSetAlone) {
    std::set<std::string> existing{"/kept"};
    const auto refused =
        tests::CatchError([&] { Client(message_t().Error("busy"))->CheckWhatFilesExist({"/a"}, existing); });
    EXPECT_EQ(refused.type, "exc::CRuntimeExc");
    EXPECT_EQ(refused.message, "Failed to enumerate existing files on target.");
    EXPECT_THAT(refused.causes, ElementsAre("busy"));

    channel = std::make_shared<tests::scripted_dev_t>();
    tests::CatchError([&] { Client(message_t().Ok().U32(2).Text("/a"))->CheckWhatFilesExist({"/a", "/b"}, existing); });
    EXPECT_THAT(existing, ElementsAre("/kept"));
}

TEST_F(FileUploadCli, AnswersCutAnywhereEndWithTheOperationsText) {
    const std::string answers = message_t().Ok().U32(0).Raw(tests::BytesOf(netmngr_cfg_t()));
    for (std::size_t length = 0; length < answers.size(); ++length) {
        channel = std::make_shared<tests::scripted_dev_t>();
        const auto caught = tests::CatchError([&] {
            Client(answers.substr(0, length))
                ->UploadItem(4096, source, token, 5, EBufTransformType::eNone, options, 1, nullptr);
        });
        EXPECT_EQ(caught.message, kItemFailed) << length;
        EXPECT_THAT(caught.causes.back(), testing::StartsWith("Failed to retrieve value from the binary stream"));
    }
}

TEST_F(FileUploadCli, ChannelThatTakesNoMoreIsAnError) {
    for (const std::size_t room : {0U, 3U, 10U, 30U}) {
        channel = std::make_shared<tests::scripted_dev_t>();
        channel->room = room;
        const auto caught = tests::CatchError([&] {
            Client(message_t().Ok())->UploadItem(4096, source, token, 5, EBufTransformType::eNone, options, 1, nullptr);
        });
        EXPECT_EQ(caught.message, kItemFailed);
        EXPECT_THAT(caught.causes.back(), testing::StartsWith("Failed to write value to the binary stream"));
    }
}

}  // namespace
