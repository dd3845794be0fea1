#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "agent/net/remote_options.h"

namespace agent::verify {

struct verify_options_t {
    /// Compare owner and group. Off where the receiver had no privilege to set them.
    bool owners = true;
    /// Owners by number, not by name first.
    bool numericOwner = false;
    /// How another agent is talked to, where a place is one of its.
    net::remote_options_t remote;
};

/// One way in which the two sides differ.
struct difference_t {
    std::string path;  ///< below the compared places; empty for the places themselves
    std::string text;  ///< "content differs at byte 4096", "missing in the second", "mode 0644 against 0600" ...
};

struct verify_report_t {
    std::uint64_t files = 0;
    std::uint64_t directories = 0;
    std::uint64_t links = 0;
    std::uint64_t bytes = 0;  ///< of contents compared
    std::vector<difference_t> differences;
};

/// Compares two files or trees of any readable form, also of other agents ("tarn://HOST:PORT/PATH"): names, types,
/// contents byte for byte, link targets, permission bits, modification times to the nanosecond, extended attributes
/// and, if asked for, owner and group. FIFOs, sockets and devices of the first side are left out, as a copy leaves them
/// out. Every difference is named; at most 1,000 are kept, and a last one says how many more there are.
///
/// Throws when one of the places cannot be read at all.
verify_report_t Verify(const std::string& first, const std::string& second, const verify_options_t& options);

}  // namespace agent::verify
