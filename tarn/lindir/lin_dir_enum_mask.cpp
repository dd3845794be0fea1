#include <string>

#include "mirrowen/util/str.h"
#include "tarn/fs_log.h"
#include "tarn/lindir/lin_dir_enum.h"

namespace tarn::lindir {

namespace {

/// Until nothing changes any more: what a replacement leaves may be replaced again.
std::string ReplaceAll(std::string text, const char* from, const char* to) {
    for (std::string next = util::str_replace(text, from, to); next != text; next = util::str_replace(text, from, to)) {
        text = next;
    }
    return text;
}

}  // namespace

bool lin_dir_enum::GenerateNewRegexMask(std::string& mask) {
    mask = util::str_trim(mask, " ");
    if (mask.empty() || mask == "*" || mask == "*.*") {
        return false;
    }
    mask = ReplaceAll(mask, "; ", "|");
    // The braces are crossed on purpose: masks in use rely on what comes out.
    static constexpr const char* kRules[][2] = {
        {".", "\\."}, {"*", ".*"},  {"?", "."},   {"$", "\\$"}, {"^", "\\^"},
        {"}", "\\{"}, {"{", "\\}"}, {"]", "\\]"}, {"[", "\\["},
    };
    for (const auto& [from, to] : kRules) {
        mask = util::str_replace(mask, from, to);
    }
    fs_log.info("Search mask is %1", mask);
    return true;
}

}  // namespace tarn::lindir
