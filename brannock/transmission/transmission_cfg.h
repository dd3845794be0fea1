#pragma once

#include <cstdint>
#include <memory>

#include "brannock/export.h"
#include "brannock/transmission/net/netmngr_cfg.h"
#include "mirrowen/digest/digests.h"
#include "mirrowen/io/block/buf_transform.h"

namespace brannock::transmission {

/// The newest version of the block stream that this build speaks.
inline constexpr std::uint32_t kTransportVersion = 1;

/// How one item is transmitted. A value; made for one transfer.
class BRANNOCK_API transmission_cfg_t {
  public:
    /// `blockSize` in bytes, io::block::kMinBlockSize to kMaxBlockSize; otherwise `exc::CRuntimeExc`
    /// "Block size [%1] is out of range.".
    transmission_cfg_t(std::uint64_t blockSize, std::uint32_t transportVersion);

    /// Blocks are handed to the destination in the order of their indices.
    void EnableSequensor() noexcept { sequensor_ = true; }
    /// Sender: pack blocks with the history's transforms. Receiver (empty history): accept packed blocks.
    void EnableCompression(std::shared_ptr<io::block::buf_transforms_history_t> history);
    /// Every block of the source is sent, whatever it holds.
    void DisableBlocksSkipping() noexcept { skipping_ = false; }
    /// A digest of the whole item is computed where it is read; with an array, block digests are registered into it.
    void EnableDigestsCalc() noexcept { digestsCalc_ = true; }
    void EnableDigestsCalc(std::shared_ptr<digest::digests_t> digests);
    void SetNetMngrCfg(const net::netmngr_cfg_t& cfg) noexcept { net_ = cfg; }

    std::uint64_t GetBlockSize() const noexcept { return blockSize_; }
    std::uint32_t GetTransportVersion() const noexcept { return transportVersion_; }
    bool IsSequensorEnabled() const noexcept { return sequensor_; }
    bool IsBlocksSkippingEnabled() const noexcept { return skipping_; }
    bool IsDigestsCalcEnabled() const noexcept { return digestsCalc_; }
    const std::shared_ptr<digest::digests_t>& GetDigests() const noexcept { return digests_; }
    const std::shared_ptr<io::block::buf_transforms_history_t>& GetCompression() const noexcept { return compression_; }
    const net::netmngr_cfg_t& GetNetMngrCfg() const noexcept { return net_; }

  private:
    std::uint64_t blockSize_;
    std::uint32_t transportVersion_;
    bool sequensor_ = false;
    bool skipping_ = true;
    bool digestsCalc_ = false;
    std::shared_ptr<digest::digests_t> digests_;
    std::shared_ptr<io::block::buf_transforms_history_t> compression_;
    net::netmngr_cfg_t net_;
};

}  // namespace brannock::transmission
