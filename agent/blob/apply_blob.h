#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <string>

namespace agent::blob {

/// Whether a blob file was applied, and what went wrong.
struct applied_t {
    /// Its commands were tried and it has been removed. Otherwise it is still there and, unless it is the removal that
    /// failed, nothing was changed.
    bool isConsumed = true;
    std::uint64_t failures = 0;  ///< commands that failed, or runs of them that were given up
    std::exception_ptr fault;    ///< empty when all of it worked
};

/// Applies the blob file at `path` to this machine and removes it, also when commands failed: see docs/formats.md,
/// "Blob file". The paths in it are taken as they are. `tell` hears the path and the text of each failure. Never throws
/// for what is wrong with the file.
applied_t ApplyBlob(const std::string& path,
                    const std::function<void(const std::string& path, const std::string& text)>& tell);

}  // namespace agent::blob
