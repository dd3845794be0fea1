#pragma once

#include <cstdint>
#include <string>

#include "brannock/export.h"
#include "mirrowen/io/binary_stream.h"

namespace brannock::transmission::net {

/// How a transfer uses the network: the number of streams and the window of blocks in flight. A value. The serial form
/// is self-delimiting; docs/protocol.md ("Network configuration") gives it.
class BRANNOCK_API netmngr_cfg_t {
  public:
    /// One channel.
    netmngr_cfg_t() noexcept = default;

    /// What this build proposes for a transport version.
    static netmngr_cfg_t GetRecommendedCfg(std::uint32_t transportVersion);
    /// Whether this build can run `cfg` under the transport version: version 1 with one stream, a window of 1 to 64
    /// blocks and nothing that this build does not know.
    static bool IsCfgValid(const netmngr_cfg_t& cfg, std::uint32_t transportVersion) noexcept;

    void Serial(io::binary_stream_tt& stream) const;
    /// Reads a configuration as it stands on the wire, valid or not, fields of later builds included; bounded. Bytes
    /// that are no configuration at all throw `exc::CRuntimeExc` "Invalid network configuration: %1.".
    static netmngr_cfg_t Unserial(io::binary_stream_tt& stream);

    bool IsMultiStreamingEnabled() const noexcept { return streams_ > 1; }
    std::uint32_t GetStreams() const noexcept { return streams_; }
    /// Blocks that the sender may have under way before the receiver grants more.
    std::uint32_t GetWindow() const noexcept { return window_; }

    friend bool operator==(const netmngr_cfg_t&, const netmngr_cfg_t&) = default;

  private:
    static constexpr std::uint32_t kDefaultWindow = 8;

    std::uint32_t streams_ = 1;
    std::uint32_t window_ = kDefaultWindow;
    std::string unknown_;  ///< what a later build put behind the fields that this one knows
};

}  // namespace brannock::transmission::net
