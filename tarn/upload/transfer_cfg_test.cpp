#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "brannock/transmission/net/netmngr_cfg.h"
#include "tarn/upload/file_upload_cli.h"
#include "tarn/upload/file_upload_srv.h"
#include "tests/support/caught_error.h"
#include "tests/support/log_lines.h"
#include "tests/support/scripted_dev.h"
#include "tests/support/upload_kit.h"

/// How both ends set up the transfer of an item's content.
namespace {

using brannock::transmission::net::netmngr_cfg_t;
using io::block::EBufTransformType;
using io::block::SBufCompressionSpec;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::message_t;

constexpr std::uint32_t kVersion = brannock::transmission::kTransportVersion;
constexpr std::uint32_t kBlock = 65536;

class open_client_t final : public tarn::file_upload_cli_t {
  public:
    using file_upload_cli_t::file_upload_cli_t;
    using file_upload_cli_t::GetSendCfg;
};

class open_server_t final : public tarn::file_upload_srv_t {
  public:
    using file_upload_srv_t::file_upload_srv_t;
    using file_upload_srv_t::GetReceiverCfg;
};

std::string Choice(std::uint32_t streams, std::uint32_t window, const std::string& more = {}) {
    return message_t().Raw("TNC1").U32(8 + more.size()).U32(streams).U32(window).Raw(more);
}

class SendCfg : public testing::Test {
  protected:
    brannock::transmission::transmission_cfg_t Settle(const SBufCompressionSpec& spec, const std::string& choice,
                                                      std::uint32_t version = kVersion) {
        channel = std::make_shared<tests::scripted_dev_t>(message_t().U32(0).Raw(choice));
        return open_client_t(channel, version, compat::SCompatibilityInfo()).GetSendCfg(spec, kBlock, digests);
    }

    std::shared_ptr<tests::scripted_dev_t> channel;
    std::shared_ptr<digest::digests_t> digests;
    tests::log_lines_t log;
};

TEST_F(SendCfg, PlainItemTravelsInOrderAndWhole) {
    const auto cfg = Settle(SBufCompressionSpec::GetPreserveSpec(), tests::BytesOf(netmngr_cfg_t()));
    EXPECT_EQ(cfg.GetBlockSize(), kBlock);
    EXPECT_EQ(cfg.GetTransportVersion(), kVersion);
    EXPECT_TRUE(cfg.IsSequensorEnabled());
    EXPECT_FALSE(cfg.IsBlocksSkippingEnabled());
    EXPECT_FALSE(cfg.IsDigestsCalcEnabled());
    EXPECT_EQ(cfg.GetDigests(), nullptr);
    EXPECT_EQ(cfg.GetCompression(), nullptr);
    EXPECT_EQ(cfg.GetNetMngrCfg(), netmngr_cfg_t());
}

TEST_F(SendCfg, CompressionIsAHistoryOfTheOneTransform) {
    const auto cfg = Settle(SBufCompressionSpec(EBufTransformType::eZstd), tests::BytesOf(netmngr_cfg_t()));
    ASSERT_NE(cfg.GetCompression(), nullptr);
    EXPECT_THAT(cfg.GetCompression()->GetTransforms(), ElementsAre(EBufTransformType::eZstd));
    // Forced, but with no real type.
    EXPECT_EQ(Settle(SBufCompressionSpec(EBufTransformType::eNone), tests::BytesOf(netmngr_cfg_t())).GetCompression(),
              nullptr);
}

TEST_F(SendCfg, DigestsAreComputedIntoTheGivenArray) {
    digests = std::make_shared<digest::digests_t>();
    const auto cfg = Settle(SBufCompressionSpec::GetPreserveSpec(), tests::BytesOf(netmngr_cfg_t()));
    EXPECT_TRUE(cfg.IsDigestsCalcEnabled());
    EXPECT_EQ(cfg.GetDigests(), digests);
}

TEST_F(SendCfg, ChoiceOfTheServerIsTaken) {
    const auto cfg = Settle(SBufCompressionSpec::GetPreserveSpec(), Choice(1, 64));
    EXPECT_EQ(cfg.GetNetMngrCfg().GetWindow(), 64U);
    EXPECT_EQ(log.Info().back(), "Multi-threaded upload is disabled.");
}

TEST_F(SendCfg, OneChannelIsTakenUnderAnyTransportVersion) {
    const auto cfg = Settle(SBufCompressionSpec::GetPreserveSpec(), tests::BytesOf(netmngr_cfg_t()), 7);
    EXPECT_EQ(cfg.GetTransportVersion(), 7U);
    EXPECT_EQ(cfg.GetNetMngrCfg(), netmngr_cfg_t());
}

TEST_F(SendCfg, ChoiceThatCannotBeRunIsRefused) {
    const std::vector<std::pair<std::string, std::string>> choices{
        {Choice(4, 8), "[4] streams, a window of [8] blocks."},
        {Choice(0, 8), "[0] streams, a window of [8] blocks."},
        {Choice(1, 0), "[1] streams, a window of [0] blocks."},
        {Choice(1, 65), "[1] streams, a window of [65] blocks."},
        {Choice(1, 0xFFFFFFFF), "[1] streams, a window of [4294967295] blocks."},
        {Choice(1, 8, "later"), "[1] streams, a window of [8] blocks."},
    };
    for (const auto& [choice, reason] : choices) {
        const auto caught =
            tests::CatchError([&, &bytes = choice] { Settle(SBufCompressionSpec::GetPreserveSpec(), bytes); });
        EXPECT_EQ(caught.type, "exc::CRuntimeExc");
        EXPECT_EQ(caught.message, "The server chose a network configuration that cannot be run: " + reason);
        EXPECT_EQ(channel->position, channel->input.size());
    }
    EXPECT_THAT(log.Info(), Contains("Multi-threaded upload is enabled."));
}

TEST_F(SendCfg, RefusedChoiceEndsTheUploadBeforeItsContent) {
    channel = std::make_shared<tests::scripted_dev_t>(message_t().Ok().U32(0).Raw(Choice(1, 0)));
    const auto source = std::make_shared<tests::probe_source_t>("hello");
    open_client_t client(channel, kVersion, compat::SCompatibilityInfo());
    const auto caught = tests::CatchError([&] {
        client.UploadItem(kBlock, source, std::make_shared<tests::probe_token_t>("/a"), 5, EBufTransformType::eNone,
                          tarn::inc_upload_options_t(), 0, nullptr);
    });
    EXPECT_EQ(caught.message,
              "Failed to upload item. Datasource: [probe source]. Target item type: [probe]. Target path: [</a>].");
    EXPECT_THAT(channel->output, testing::EndsWith(tests::BytesOf(netmngr_cfg_t::GetRecommendedCfg(kVersion))));
    EXPECT_NE(source->ReadNext(), nullptr) << "the source was read";
}

TEST_F(SendCfg, StepsAreLoggedInOrder) {
    tarn::inc_upload_options_t options;
    options.digests = std::make_shared<digest::digests_t>();
    channel = std::make_shared<tests::scripted_dev_t>(message_t().Ok().U32(0).Raw(tests::BytesOf(netmngr_cfg_t())));
    open_client_t client(channel, kVersion, compat::SCompatibilityInfo());
    // The channel ends where the content would go.
    EXPECT_TRUE(tests::CatchError([&] {
                    client.UploadItem(kBlock, std::make_shared<tests::probe_source_t>("hello"),
                                      std::make_shared<tests::probe_token_t>("/a"), 5, EBufTransformType::eLz4, options,
                                      0, nullptr);
                }).thrown);
    EXPECT_THAT(log.Info(),
                ElementsAre("Traffic compression level: 'lz4'.", "Forcing client to use one channel for download.",
                            "Multi-threaded upload is disabled.", "Digest hook for filter signature will be enabled."));
}

class ReceiverCfg : public testing::Test {
  protected:
    tests::recording_console_t console;
    open_server_t server{std::make_shared<tests::scripted_dev_t>(), console, false, kVersion,
                         compat::SCompatibilityInfo()};
};

TEST_F(ReceiverCfg, TakesBlocksInOrderPackedOrNot) {
    const auto cfg = server.GetReceiverCfg(kBlock, netmngr_cfg_t());
    EXPECT_EQ(cfg.GetBlockSize(), kBlock);
    EXPECT_EQ(cfg.GetTransportVersion(), kVersion);
    EXPECT_TRUE(cfg.IsSequensorEnabled());
    ASSERT_NE(cfg.GetCompression(), nullptr);
    EXPECT_THAT(cfg.GetCompression()->GetTransforms(), IsEmpty());
    EXPECT_FALSE(cfg.IsDigestsCalcEnabled());
}

TEST_F(ReceiverCfg, RunsTheChosenNetworkConfiguration) {
    io::binary_stream_tt stream(std::make_shared<tests::scripted_dev_t>(Choice(1, 3)));
    const auto chosen = netmngr_cfg_t::Unserial(stream);
    EXPECT_EQ(server.GetReceiverCfg(kBlock, chosen).GetNetMngrCfg(), chosen);
}

}  // namespace
