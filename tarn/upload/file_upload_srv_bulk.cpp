#include <utility>

#include "brannock/transmission/areas_recv_channel.h"
#include "brannock/transmission/transmit.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/block/buf_transform.h"
#include "tarn/fs_log.h"
#include "tarn/upload/file_upload_srv.h"
#include "tarn/upload/net_cfg_bytes.h"

/// What happens between an item's two acknowledgements: the transfer of its content.
namespace tarn {

using brannock::transmission::net::netmngr_cfg_t;

void file_upload_srv_t::DoRecv(const std::shared_ptr<io::area::area_write_dev_t>& writer,
                               const progress_ptr_t& progress, std::uint32_t blockSize) {
    ReceiveCryptedItemSpec();
    const auto cfg = GetReceiverCfg(blockSize, NegotiateTransmissionCfg());
    auto channel = std::make_shared<brannock::transmission::areas_recv_channel_t>(
        writer->GetDisplayName(), GetDevice(), cfg.GetNetMngrCfg(), transportVersion_);
    brannock::transmission::Transmit(std::move(channel), writer, cfg, progress, offsetHolder_);
}

void file_upload_srv_t::ReceiveCryptedItemSpec() {
    WriteFlag(decryptionEnabled_);
    Flush();
    if (decryptionEnabled_) {
        throw exc::CRuntimeExc("Keysets are not supported.");
    }
}

netmngr_cfg_t file_upload_srv_t::NegotiateTransmissionCfg() {
    fs_log.info("Negotiating multi-threaded download settings.");
    netmngr_cfg_t cfg = netmngr_cfg_t::Unserial(*this);
    if (netmngr_cfg_t::IsCfgValid(cfg, transportVersion_)) {
        fs_log.info(cfg.IsMultiStreamingEnabled() ? "Multi-threaded download algorithm is enabled."
                                                  : "Multi-threaded download algorithm is disabled.");
    } else {
        fs_log.warn(
            "Proposed network utilization scheme is not supported by client. One channel will be used for download.");
        cfg = netmngr_cfg_t();
    }
    upload::WriteNetCfg(*this, cfg);
    return cfg;
}

brannock::transmission::transmission_cfg_t file_upload_srv_t::GetReceiverCfg(std::uint32_t blockSize,
                                                                             const netmngr_cfg_t& net) const {
    brannock::transmission::transmission_cfg_t cfg(blockSize, transportVersion_);
    cfg.EnableSequensor();
    // An empty history: the sender decides whether and how blocks are packed.
    cfg.EnableCompression(std::make_shared<io::block::buf_transforms_history_t>());
    cfg.SetNetMngrCfg(net);
    return cfg;
}

}  // namespace tarn
