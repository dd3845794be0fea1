#pragma once

#include <string>
#include <vector>

namespace agent::blob {

/// The blob files directly in `directory`, "blobfs0", "blobfs1" and so on, in the order of their numbers, in which they
/// have to be applied: a file may go on in the next. Other names are left out. Throws `posix::errno_exc_t` "Failed to
/// open directory [%1]", "Failed to list directory [%1]".
std::vector<std::string> BlobFilesIn(const std::string& directory);

/// `paths` with each directory replaced by the blob files in it. A directory without any throws `exc::CRuntimeExc`
/// "There is no blob file in [%1].".
std::vector<std::string> ExpandBlobPaths(const std::vector<std::string>& paths);

}  // namespace agent::blob
