#pragma once

#include <string>
#include <vector>

#include "mirrowen/posix/unique_fd.h"

namespace agent {

/// The names in the directory that `directory` has open for reading, in the kernel's order, without "." and "..".
/// Throws `posix::errno_exc_t` "Failed to list directory [%1]" with `shown`.
std::vector<std::string> ListDirectory(posix::unique_fd_t directory, const std::string& shown);

}  // namespace agent
