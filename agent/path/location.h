#pragma once

#include <string>
#include <string_view>

#include "agent/net/endpoint.h"

namespace agent {

/// A place as a person names it: a path of any form that the library knows, or "tarn://HOST:PORT/PATH", a path below
/// the root of a receiving agent. PATH is bytes as they stand, without escapes; "tarn://HOST:PORT/" is the root itself.
struct location_t {
    bool isRemote = false;
    net::endpoint_t endpoint;  ///< of a remote location
    /// Remote: relative to the agent's root, without leading or trailing slashes, empty for the root. Else the text
    /// itself.
    std::string path;

    friend bool operator==(const location_t&, const location_t&) = default;
};

/// Throws `exc::CRuntimeExc` "'%1' is not a location of the form tarn://HOST:PORT/PATH." for a text that begins with
/// "tarn://" and goes on wrongly.
location_t ParseLocation(std::string_view text);

/// The form that ParseLocation reads.
std::string ToString(const location_t& location);

/// `location` with one more component.
location_t Append(const location_t& location, std::string_view name);

}  // namespace agent
