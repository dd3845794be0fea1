#pragma once

#include <cstdint>
#include <memory>

#include "brannock/export.h"
#include "mirrowen/digest/digests.h"
#include "mirrowen/io/area/area_write_dev.h"

namespace brannock::transmission {

/// Stands in front of another destination and registers the digest of every block that passes.
class BRANNOCK_API digest_registrator_channel_t {
  public:
    static std::shared_ptr<io::area::area_write_dev_t> Create(std::shared_ptr<io::area::area_write_dev_t> inner,
                                                              std::shared_ptr<digest::digests_t> digests,
                                                              std::uint64_t blockSize);
};

}  // namespace brannock::transmission
