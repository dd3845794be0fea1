#pragma once

#include <memory>
#include <vector>

#include "brannock/transmission/block_sink.h"
#include "brannock/transmission/block_source.h"

namespace brannock::transmission {

/// A copy without a channel: reading and writing overlap, except for an item of one block.
void RunLocalTransfer(const std::shared_ptr<io::area::area_read_dev_t>& source,
                      const std::shared_ptr<io::area::area_write_dev_t>& destination, const transmission_cfg_t& cfg,
                      std::vector<digest_target_t> digests, const observers_t& observers);

}  // namespace brannock::transmission
