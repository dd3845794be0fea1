#pragma once

#include <string>
#include <vector>

#include "agent/verify/verify.h"
#include "mirrowen/util/file_info.h"

namespace agent::verify {

/// Says in which attributes the two differ, one text each: owner and group (as the options say), mode (links have none
/// of their own), modification time, extended attributes.
std::vector<std::string> CompareAttributes(const util::CFileInfo& first, const util::CFileInfo& second,
                                           const verify_options_t& options);

}  // namespace agent::verify
