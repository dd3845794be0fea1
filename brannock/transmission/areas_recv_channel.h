#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "brannock/export.h"
#include "brannock/transmission/channel_ends.h"
#include "brannock/transmission/net/netmngr_cfg.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/io_dev.h"

namespace brannock::transmission {

/// The receiving end of a block stream, as a source of `Transmit`, which alone can read it: the far end has to be told
/// how the writing ended, so `ReadNext` throws `exc::CNotImplExc`.
class BRANNOCK_API areas_recv_channel_t final : public io::area::area_read_dev_t, public IChannelEnd {
  public:
    /// `name`: what is received, for logs and messages. `channel` is shared with the dialogue.
    areas_recv_channel_t(std::string name, std::shared_ptr<io::io_dev_t> channel, const net::netmngr_cfg_t& cfg,
                         std::uint32_t transportVersion);
    ~areas_recv_channel_t() override;

    std::shared_ptr<io::area::IArea> ReadNext() override;
    std::string GetDisplayName() override;
    void SetEmptyBlocksMaximum(std::uint64_t maximum) override;

    const channel_spec_t& GetChannel() const override { return channel_; }

  private:
    const std::string name_;
    const channel_spec_t channel_;
};

}  // namespace brannock::transmission
