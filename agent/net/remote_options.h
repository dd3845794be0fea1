#pragma once

#include <chrono>
#include <cstdint>
#include <stop_token>

namespace agent::net {

/// 4 KiB a second: a peer that trickles a frame is given up, a slow line is not.
inline constexpr std::uint64_t kDefaultMinimumRate = 4096;

/// How long and how patiently a receiving agent is talked to.
struct remote_options_t {
    std::chrono::milliseconds connectTimeout{std::chrono::seconds(10)};  ///< for connecting and the preamble together
    std::chrono::milliseconds idleTimeout{std::chrono::seconds(120)};
    std::uint64_t minimumRate = kDefaultMinimumRate;  ///< bytes a second inside a frame; 0 for no limit
    std::stop_token stop;

    /// Throws `exc::CRuntimeExc` "The work was cancelled." when a stop was asked for.
    void ThrowIfStopped() const;
};

}  // namespace agent::net
