#pragma once

#include <string>

/// The names that the staging folder itself has, beside its journal's.
namespace agent {

inline constexpr const char* kStagingLockName = "lock";

/// A random name of 32 lower-case hexadecimal digits that nothing has yet.
std::string NewStagingName();

}  // namespace agent
