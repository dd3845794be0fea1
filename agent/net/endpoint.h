#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace agent::net {

/// Where an agent listens: a host name or address, and a port.
struct endpoint_t {
    std::string host;
    std::uint16_t port = 0;

    friend bool operator==(const endpoint_t&, const endpoint_t&) = default;
};

/// Reads "HOST:PORT", with an IPv6 address in brackets ("[::1]:7070"). Anything else throws `exc::CRuntimeExc`
/// "'%1' is not an address of the form HOST:PORT." with the text.
endpoint_t ParseEndpoint(std::string_view text);

/// The form that ParseEndpoint reads.
std::string ToString(const endpoint_t& endpoint);

}  // namespace agent::net
