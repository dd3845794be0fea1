#include "brannock/transmission/transmit.h"

#include <utility>
#include <vector>

#include "brannock/transmission/channel_ends.h"
#include "brannock/transmission/local_transfer.h"
#include "brannock/transmission/recv_transfer.h"
#include "brannock/transmission/send_transfer.h"
#include "mirrowen/exc/runtime_exc.h"

namespace brannock::transmission {

void Transmit(std::shared_ptr<io::area::area_read_dev_t> source,
              std::shared_ptr<io::area::area_write_dev_t> destination, const transmission_cfg_t& cfg,
              std::shared_ptr<progress::progress_base_t> progress,
              std::shared_ptr<processed_offset_holder_t> offsetHolder) {
    const observers_t observers{std::move(progress), std::move(offsetHolder)};
    if (const auto* const incoming = dynamic_cast<const IChannelEnd*>(source.get())) {
        recv_transfer_t(incoming->GetChannel(), std::move(destination), cfg, observers).Run();
        return;
    }
    std::vector<digest_target_t> digests;
    if (cfg.GetDigests()) {
        digests.push_back({cfg.GetDigests(), cfg.GetBlockSize()});
    }
    while (const auto* const registrator = dynamic_cast<const IDigestRegistrator*>(destination.get())) {
        digests.push_back(registrator->GetTarget());
        destination = std::shared_ptr(registrator->GetInner());
    }
    if (const auto* const outgoing = dynamic_cast<const IChannelEnd*>(destination.get())) {
        send_transfer_t(std::move(source), outgoing->GetChannel(), cfg, std::move(digests), observers).Run();
    } else {
        RunLocalTransfer(source, destination, cfg, std::move(digests), observers);
    }
}

}  // namespace brannock::transmission
