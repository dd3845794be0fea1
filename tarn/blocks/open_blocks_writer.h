#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/io/area/area_write_dev.h"

namespace tarn::blocks {

/// Opens the file at `path` through the backend of its path and wraps the stream in the writer that fits: with
/// `incremental` the existing file, set to `size` bytes, for blocks in any order; otherwise a new file of `size` bytes
/// for blocks in order. What the dispatcher or the backend throws comes through unchanged; nothing stays open then.
std::shared_ptr<io::area::area_write_dev_t> OpenBlocksWriter(const std::string& path, std::uint64_t size,
                                                             bool incremental, bool overwrite);

}  // namespace tarn::blocks
