#include "brannock/transmission/transmission_cfg.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/block/block_math.h"

namespace brannock::transmission {

transmission_cfg_t::transmission_cfg_t(std::uint64_t blockSize, std::uint32_t transportVersion)
    : blockSize_(blockSize), transportVersion_(transportVersion) {
    if (blockSize < io::block::kMinBlockSize || blockSize > io::block::kMaxBlockSize) {
        throw exc::CRuntimeExc("Block size [%1] is out of range.", blockSize);
    }
}

void transmission_cfg_t::EnableCompression(std::shared_ptr<io::block::buf_transforms_history_t> history) {
    compression_ = std::move(history);
}

void transmission_cfg_t::EnableDigestsCalc(std::shared_ptr<digest::digests_t> digests) {
    digestsCalc_ = true;
    digests_ = std::move(digests);
}

}  // namespace brannock::transmission
