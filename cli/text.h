#pragma once

#include <cstdint>
#include <string>

#include "mirrowen/util/file_info.h"

namespace cli {

/// RFC 3339 in UTC with nanoseconds, "2026-11-21T11:02:12.000000001Z".
std::string TimeText(const util::SFileTime& time);

/// Four octal digits, "0644".
std::string ModeText(std::uint32_t mode);

/// "file", "directory", "link", "fifo" ...; "unknown" for an unset one.
const char* TypeText(util::EFileType type);

}  // namespace cli
