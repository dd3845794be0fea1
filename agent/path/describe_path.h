#pragma once

#include <string>
#include <utility>
#include <vector>

namespace agent {

/// What a path string is: the backend that it reaches, and the fields that the backend reads out of it.
struct path_description_t {
    std::string backend;  ///< "host", "memory", "restore view", "tape data", "blob", "relative", "agent"
    std::vector<std::pair<std::string, std::string>> fields;
};

/// Takes a path of any form apart, without touching what it names. Throws the library's own error for a form that is
/// recognised and malformed.
path_description_t DescribePath(const std::string& text);

}  // namespace agent
