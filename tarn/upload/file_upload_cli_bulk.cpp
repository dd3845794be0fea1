#include <utility>

#include "brannock/transmission/areas_send_channel.h"
#include "brannock/transmission/net/netmngr_cfg.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/fs_log.h"
#include "tarn/upload/file_upload_cli.h"
#include "tarn/upload/net_cfg_bytes.h"

/// What sender and server settle between an item's first acknowledgement and its content.
namespace tarn {

using brannock::transmission::transmission_cfg_t;
using brannock::transmission::net::netmngr_cfg_t;

namespace {

/// The window and the streams decide how this end waits and sends, so a server may not name just any numbers. One
/// channel is what both ends fall back to, whatever the transport version.
void CheckChoiceExc(const netmngr_cfg_t& choice, std::uint32_t transportVersion) {
    if (choice != netmngr_cfg_t() && !netmngr_cfg_t::IsCfgValid(choice, transportVersion)) {
        throw exc::CRuntimeExc(
            "The server chose a network configuration that cannot be run: [%1] streams, a window of [%2] blocks.",
            choice.GetStreams(), choice.GetWindow());
    }
}

}  // namespace

transmission_cfg_t file_upload_cli_t::GetSendCfg(const io::block::SBufCompressionSpec& spec, std::uint32_t blockSize,
                                                 const std::shared_ptr<digest::digests_t>& digests) {
    transmission_cfg_t cfg(blockSize, transportVersion_);
    SendSourceKeySets();

    const io::block::EBufTransformType type = spec.GetTransformType();
    if (spec.IsCompressionForced() && type != io::block::EBufTransformType::eNone) {
        fs_log.info("Traffic compression level: '%1'.", io::block::str_from_buftransformtype(type));
        auto history = std::make_shared<io::block::buf_transforms_history_t>();
        history->PushTransform(type);
        cfg.EnableCompression(std::move(history));
    } else {
        fs_log.info("Traffic compression is disabled.");
    }

    cfg.EnableSequensor();
    cfg.DisableBlocksSkipping();
    if (digests) {
        cfg.EnableDigestsCalc(digests);
    }
    NetogiateNetMngrCfg(cfg);
    return cfg;
}

void file_upload_cli_t::SendSourceKeySets() {
    if (ReadFlag()) {
        throw exc::CRuntimeExc("Keysets are not supported.");
    }
}

void file_upload_cli_t::NetogiateNetMngrCfg(transmission_cfg_t& cfg) {
    const netmngr_cfg_t proposal = netmngr_cfg_t::GetRecommendedCfg(transportVersion_);
    fs_log.info(proposal.IsMultiStreamingEnabled() ? "Checking whether multi-threaded upload is supported by client."
                                                   : "Forcing client to use one channel for download.");
    upload::WriteNetCfg(*this, proposal);
    const netmngr_cfg_t choice = netmngr_cfg_t::Unserial(*this);
    fs_log.info(choice.IsMultiStreamingEnabled() ? "Multi-threaded upload is enabled."
                                                 : "Multi-threaded upload is disabled.");
    CheckChoiceExc(choice, transportVersion_);
    cfg.SetNetMngrCfg(choice);
}

std::shared_ptr<io::area::area_write_dev_t> file_upload_cli_t::CreateSendChannel(const transmission_cfg_t& cfg) {
    return brannock::transmission::areas_send_channel_t::Create(GetDevice(), cfg.GetNetMngrCfg(), transportVersion_);
}

}  // namespace tarn
