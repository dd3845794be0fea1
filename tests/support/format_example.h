#pragma once

#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace tests {

/// The bytes of the first `hex` block below the heading "## <section>" of docs/formats.md (or another file of docs/),
/// so that a golden-byte test and the documentation are one and the same. Tests run with the tree's root as their
/// folder.
inline std::string FormatExample(const std::string& section, const std::string& file = "docs/formats.md") {
    std::ifstream in(file);
    std::string line;
    const auto skipTo = [&](const std::string& wanted) {
        while (std::getline(in, line)) {
            if (line == wanted) {
                return;
            }
        }
        throw std::runtime_error(file + " has no \"" + wanted + "\" for " + section);
    };
    skipTo("## " + section);
    skipTo("```hex");
    std::string bytes;
    while (std::getline(in, line) && line != "```") {
        std::istringstream words(line.substr(0, line.find(';')));
        for (std::string word; words >> word;) {
            unsigned value = 0;
            const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, 16);
            if (word.size() != 2 || error != std::errc() || end != word.data() + word.size()) {
                throw std::runtime_error("\"" + word + "\" is not a byte in " + file);
            }
            bytes += static_cast<char>(value);
        }
    }
    return bytes;
}

}  // namespace tests
