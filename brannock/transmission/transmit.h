#pragma once

#include <memory>

#include "brannock/export.h"
#include "brannock/transmission/processed_offset_holder.h"
#include "brannock/transmission/transmission_cfg.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/area/area_write_dev.h"
#include "mirrowen/progress/progress_base.h"

namespace brannock::transmission {

/// Moves every area of `source` to `destination` and finishes the destination (`Finish`, exactly once, only after
/// everything was written and the totals agreed). Either side may be a channel (`areas_send_channel_t`,
/// `areas_recv_channel_t`) or a device of the caller's; without a channel it is a local copy.
///
/// Runs as a bounded pipeline: memory does not depend on the item's size. Returns when the destination is finished and,
/// over a channel, the far end has reported how it ended. `progress` and `offsetHolder` may be empty.
///
/// Errors: the failure of either side, also the far one's as its text; `exc::CAlreadyExistsExc` passes through
/// unwrapped. A failure is told to the far end, so neither hangs; the channel is then at the end of the item's frames
/// and the dialogue can go on.
BRANNOCK_API void Transmit(std::shared_ptr<io::area::area_read_dev_t> source,
                           std::shared_ptr<io::area::area_write_dev_t> destination, const transmission_cfg_t& cfg,
                           std::shared_ptr<progress::progress_base_t> progress,
                           std::shared_ptr<processed_offset_holder_t> offsetHolder = nullptr);

}  // namespace brannock::transmission
