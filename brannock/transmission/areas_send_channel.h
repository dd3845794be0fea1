#pragma once

#include <cstdint>
#include <memory>

#include "brannock/export.h"
#include "brannock/transmission/net/netmngr_cfg.h"
#include "mirrowen/io/area/area_write_dev.h"
#include "mirrowen/io/io_dev.h"

namespace brannock::transmission {

/// The sending end of a block stream, as a destination of `Transmit`, which alone can write to it: `Write` and `Finish`
/// throw `exc::CNotImplExc`. What the source delivers travels as frames over the channel device. docs/protocol.md
/// ("Block stream") gives the frames.
class BRANNOCK_API areas_send_channel_t {
  public:
    /// `channel` is shared with the dialogue that runs before and after the item. A configuration that this build
    /// cannot run (it is the far end's answer) throws `exc::CRuntimeExc` "A transfer cannot run over [%1] streams with
    /// a window of [%2] blocks.".
    static std::shared_ptr<io::area::area_write_dev_t> Create(std::shared_ptr<io::io_dev_t> channel,
                                                              const net::netmngr_cfg_t& cfg,
                                                              std::uint32_t transportVersion);
};

}  // namespace brannock::transmission
