#include "mirrowen/io/block/block_math.h"

#include "mirrowen/exc/runtime_exc.h"

namespace io::block {

block_math_t::block_math_t(std::uint64_t granularity) : granularity_(granularity) {
    if (granularity == 0 || granularity > kMaxBlockSize) {
        throw exc::CRuntimeExc("Block granularity [%1] is out of range.", granularity);
    }
}

}  // namespace io::block
