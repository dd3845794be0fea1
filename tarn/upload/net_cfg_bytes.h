#pragma once

#include "brannock/transmission/net/netmngr_cfg.h"
#include "mirrowen/io/binary_stream.h"

namespace tarn::upload {

/// Sends a network configuration: it is serialised in memory first, so it leaves as one piece, and flushed, since the
/// far end's answer is what comes next.
void WriteNetCfg(io::binary_stream_tt& stream, const brannock::transmission::net::netmngr_cfg_t& cfg);

}  // namespace tarn::upload
