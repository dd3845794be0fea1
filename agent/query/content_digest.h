#pragma once

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "agent/root/confined_root.h"
#include "mirrowen/digest/digests.h"

namespace agent::query {

/// A file's content without the content: how long it is and the digest of all of it, holes as the zeroes that they are.
struct content_digest_t {
    std::uint64_t size = 0;  ///< bytes
    digest::block_digest_t digest{};

    friend bool operator==(const content_digest_t&, const content_digest_t&) = default;
};

/// Reads the file `name` below the root, from the storage and not from memory where the system allows it: what was
/// written is first brought to the storage, then the kept pages are given back. Nothing when no regular file is there
/// (a link is none). Errors: those of `confined_root_t::OpenFile`; `posix::errno_exc_t` "Failed to sync [%1]" and those
/// of reading; `exc::CRuntimeExc` "File [%1] changed while it was read." and, when `stop` was asked for, "The work was
/// cancelled.". Any thread.
std::optional<content_digest_t> DigestFile(const confined_root_t& root, const std::string& name,
                                           const std::stop_token& stop = {});

}  // namespace agent::query
