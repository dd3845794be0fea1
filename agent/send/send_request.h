#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/copy/copy.h"
#include "mirrowen/io/binary_stream.h"
#include "mirrowen/io/block/block_math.h"
#include "mirrowen/io/block/buf_transform.h"

/// What goes over the wire of the send service besides the upload dialogue, which follows with the roles turned round.
/// The layouts are in docs/protocol.md ("Send service").
namespace agent::send {

/// The numbers that open a request; they stand on the wire.
enum class ERequest : std::uint32_t {
    eItem = 1,  ///< a request for an item follows
    eEnd = 2,   ///< the connection is over
};

/// The name under which the far end's root itself is asked for.
inline constexpr const char* kRootName = ".";

/// One item that the far end is to send.
struct send_request_t {
    std::string path;               ///< below the root of the far end; kRootName for the root itself
    std::uint64_t startOffset = 0;  ///< of a file: where the bytes begin that are wanted
    std::uint32_t blockSize = static_cast<std::uint32_t>(io::block::kDefaultBlockSize);  ///< bytes, at most
    io::block::EBufTransformType compression = io::block::EBufTransformType::eNone;  ///< what blocks may be packed by

    friend bool operator==(const send_request_t&, const send_request_t&) = default;
};

/// Writes the number and the fields.
void WriteRequest(io::binary_stream_tt& stream, const send_request_t& request);
/// Reads the fields; the number has been read. A path longer than a name may be throws the stream's error.
send_request_t ReadRequest(io::binary_stream_tt& stream);

/// Writes what could not be read of an item's attributes: the first brannock::transmission::kMaxReports notes, paths
/// and texts cut as there.
void WriteNotes(io::binary_stream_tt& stream, const std::vector<copy::copy_note_t>& notes);
/// Reads such a list; the texts are a peer's, so control bytes in them are escaped. Throws `exc::CRuntimeExc` "List of
/// [%1] notes is longer than the allowed [%2]." and the stream's errors.
std::vector<copy::copy_note_t> ReadNotes(io::binary_stream_tt& stream);

}  // namespace agent::send
