#pragma once

namespace cli {

/// The project's version, from the build.
extern const char* const kVersion;

}  // namespace cli
