#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "agent/staging/copy_groups.h"
#include "mirrowen/guid/guid.h"

/// What both ends of a batch agree on. A batch carries many small deferred items of one copy in one message; the layout
/// is in docs/formats.md ("Batch"), the way it goes in docs/protocol.md ("Batches").
namespace agent::batch {

/// Bytes of the largest file that may travel in a batch.
inline constexpr std::uint64_t kMaxBatchFile = std::uint64_t{4} << 20;
/// A file of more bytes travels by itself unless the person who copies says otherwise.
inline constexpr std::uint64_t kDefaultBatchFile = std::uint64_t{1} << 20;
/// A sender closes a batch as soon as its command stream has this many bytes.
inline constexpr std::uint64_t kBatchPayload = std::uint64_t{4} << 20;
/// A receiver refuses more bytes than this, packed or not: a stream that was nearly full, and one more entry.
inline constexpr std::uint64_t kMaxBatchPayload = std::uint64_t{16} << 20;
/// Entries of one batch.
inline constexpr std::size_t kMaxBatchEntries = 512;

static_assert(kMaxBatchEntries <= copy_groups_t::kMaxEntries, "a batch fits into a group");

/// Whose entry something in a batch is.
struct batch_name_t {
    guid::guid_t copy;
    std::uint64_t entry = 0;  ///< its number in the copy's group, from 0, as `item_t::entry`

    friend bool operator==(const batch_name_t&, const batch_name_t&) = default;
};

/// The name under which an entry stands in the token and in the command stream: the copy as 32 lower-case hexadecimal
/// digits, a slash, and the number plus one, in decimal.
std::string FormatBatchName(const batch_name_t& name);

/// Reads what FormatBatchName writes and nothing else. Throws `exc::CRuntimeExc` "[%1] names no entry of a batch.", cut
/// and escaped as names from a peer are.
batch_name_t ParseBatchName(std::string_view text);

}  // namespace agent::batch
