#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mirrowen/io/binary_stream.h"

namespace tarn::upload {

/// Reads a list of paths as the dialogue carries it: a u32 count and so many strings. Memory grows as they arrive. A
/// count above `maximum` throws `exc::CRuntimeExc` "List of [%1] paths is longer than the allowed [%2]."; paths of more
/// than kMaxListedBytes together "Paths of a list are longer than the allowed [%1] bytes together."; a single one above
/// kMaxPathBytes the stream's own error.
std::vector<std::string> ReadPathList(io::binary_stream_tt& stream, std::uint32_t maximum);

/// Writes such a list. More than 4294967295 paths throw "Unable to cast value from [%1] to [%2].".
void WritePathList(io::binary_stream_tt& stream, const std::vector<std::string>& paths);

}  // namespace tarn::upload
