#pragma once

#include <string_view>

namespace cli {

/// Whether `verb` may talk to a receiving agent without encryption: when `--plaintext` was given. If not, it says so on
/// standard error, and the command ends as wrong usage.
bool MayTalkPlainly(std::string_view verb, bool plaintext);

}  // namespace cli
