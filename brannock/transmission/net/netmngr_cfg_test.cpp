#include "brannock/transmission/net/netmngr_cfg.h"

#include <gtest/gtest.h>

#include "brannock/transmission/areas_send_channel.h"
#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/mem_dev.h"
#include "tests/support/format_example.h"

namespace brannock::transmission::net {
namespace {

using bytes_t = std::vector<char>;

netmngr_cfg_t Parse(const std::string& bytes) {
    auto buffer = std::make_shared<bytes_t>(bytes.begin(), bytes.end());
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<bytes_t>>(buffer));
    return netmngr_cfg_t::Unserial(stream);
}

std::string Print(const netmngr_cfg_t& cfg) {
    auto buffer = std::make_shared<bytes_t>();
    io::binary_stream_tt stream(std::make_shared<io::mem_dev_tt<bytes_t>>(buffer));
    cfg.Serial(stream);
    return {buffer->begin(), buffer->end()};
}

std::string Default() {
    return tests::FormatExample("Network configuration", "docs/protocol.md");
}

TEST(NetmngrCfgTest, DefaultHasTheDocumentedBytesAndIsValid) {
    EXPECT_EQ(Default(), Print({}));
    EXPECT_EQ(netmngr_cfg_t(), Parse(Default()));
    EXPECT_EQ(netmngr_cfg_t(), netmngr_cfg_t::GetRecommendedCfg(1));
    EXPECT_TRUE(netmngr_cfg_t::IsCfgValid({}, 1));
    EXPECT_FALSE(netmngr_cfg_t::IsCfgValid({}, 2));
    EXPECT_FALSE(netmngr_cfg_t().IsMultiStreamingEnabled());
}

TEST(NetmngrCfgTest, UnknownProposalIsReadableAndInvalid) {
    const std::string streams("TNC1\x08\0\0\0\x04\0\0\0\x08\0\0\0", 16);
    EXPECT_TRUE(Parse(streams).IsMultiStreamingEnabled());
    const std::string later("TNC1\x0b\0\0\0\x01\0\0\0\x08\0\0\0abc", 19);
    EXPECT_EQ(later, Print(Parse(later)));
    const std::string noWindow("TNC1\x08\0\0\0\x01\0\0\0\0\0\0\0", 16);
    const std::string wide("TNC1\x08\0\0\0\x01\0\0\0\x41\0\0\0", 16);
    for (const std::string& bytes : {streams, later, noWindow, wide}) {
        EXPECT_FALSE(netmngr_cfg_t::IsCfgValid(Parse(bytes), 1));
    }
}

TEST(NetmngrCfgTest, WhatIsNoConfigurationIsRefused) {
    EXPECT_THROW(Parse(std::string("TNCX\x08\0\0\0\x01\0\0\0\x08\0\0\0", 16)), exc::CRuntimeExc);
    EXPECT_THROW(Parse(std::string("TNC1\x07\0\0\0\x01\0\0\0\x08\0\0", 15)), exc::CRuntimeExc);
    EXPECT_THROW(Parse(std::string("TNC1\xff\xff\xff\xff\x01\0\0\0\x08\0\0\0", 16)), exc::CRuntimeExc);
    const std::string whole = Default();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(Parse(whole.substr(0, size)), exc::CRuntimeExc) << size;
    }
}

TEST(NetmngrCfgTest, SenderRefusesWhatItCannotRun) {
    const auto create = [](const std::string& bytes) {
        return areas_send_channel_t::Create(nullptr, Parse(bytes), kTransportVersion);
    };
    EXPECT_NO_THROW(create(Default()));
    try {
        create(std::string("TNC1\x08\0\0\0\x04\0\0\0\0\0\0\0", 16));
        FAIL();
    } catch (const exc::CRuntimeExc& error) {
        EXPECT_STREQ("A transfer cannot run over [4] streams with a window of [0] blocks.", error.what());
    }
}

TEST(TransmissionCfgTest, BlockSizeIsChecked) {
    EXPECT_NO_THROW(transmission_cfg_t(4096, 1));
    EXPECT_NO_THROW(transmission_cfg_t(16777216, 1));
    for (const std::uint64_t size : {0U, 4095U, 16777217U}) {
        EXPECT_THROW(transmission_cfg_t(size, 1), exc::CRuntimeExc);
    }
}

}  // namespace
}  // namespace brannock::transmission::net
