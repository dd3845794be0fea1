#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "brannock/transmission/net/netmngr_cfg.h"
#include "mirrowen/digest/digests.h"
#include "mirrowen/io/area/area_write_dev.h"
#include "mirrowen/io/io_dev.h"

/// What `Transmit` asks of its two sides by cast; private to the engine.
namespace brannock::transmission {

/// A channel that an item travels over.
struct channel_spec_t {
    std::shared_ptr<io::io_dev_t> device;
    net::netmngr_cfg_t net;
};

/// A source or destination that is one end of a block stream.
class IChannelEnd {
  public:
    virtual ~IChannelEnd() = default;
    virtual const channel_spec_t& GetChannel() const = 0;
};

/// Where the digests of an item's blocks are registered. A block's index is its offset divided by the block size.
struct digest_target_t {
    std::shared_ptr<digest::digests_t> digests;
    std::uint64_t blockSize = 0;

    void Register(std::uint64_t offset, const digest::block_digest_t& digest) const {
        digests->Register(offset / blockSize, digest);
    }
};

/// A destination that stands in front of another one and registers digests.
class IDigestRegistrator {
  public:
    virtual ~IDigestRegistrator() = default;
    virtual const digest_target_t& GetTarget() const = 0;
    virtual const std::shared_ptr<io::area::area_write_dev_t>& GetInner() const = 0;
};

}  // namespace brannock::transmission
