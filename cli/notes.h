#pragma once

#include <string_view>
#include <vector>

#include "agent/copy/copy.h"

namespace cli {

/// Prints one line a note on standard error, "tarn: WHAT PATH: TEXT", control bytes escaped.
void PrintNotes(const std::vector<agent::copy::copy_note_t>& notes, std::string_view what);

}  // namespace cli
