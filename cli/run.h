#pragma once

#include <string>
#include <vector>

namespace cli {

/// Runs one command line (the arguments after the program's name) and returns the exit code. Everything that fails is
/// printed on standard error.
int Run(const std::vector<std::string>& arguments);

}  // namespace cli
