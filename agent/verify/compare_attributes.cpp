#include "agent/verify/compare_attributes.h"

#include <cstdio>
#include <map>

#include "mirrowen/util/str_format.h"

namespace agent::verify {

namespace {

std::string octal(std::uint32_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", mode);
    return text;
}

std::string time_text(const util::SFileTime& time) {
    char text[48];
    std::snprintf(text, sizeof text, "%lld.%09u", static_cast<long long>(time.seconds), time.nanoseconds);
    return text;
}

std::string principal_text(const util::SPrincipal& principal) {
    return principal.name.empty() ? std::to_string(principal.id) : principal.name;
}

bool same_principal(const util::SPrincipal& first, const util::SPrincipal& second, bool numeric) {
    return numeric || first.name.empty() || second.name.empty() ? first.id == second.id : first.name == second.name;
}

void compare_principal(const char* what, const util::SPrincipal& first, const util::SPrincipal& second, bool numeric,
                       std::vector<std::string>& out) {
    if (!same_principal(first, second, numeric)) {
        out.push_back(util::str_format("%1 %2 against %3", what, principal_text(first), principal_text(second)));
    }
}

using attributes_t = std::map<std::string, std::string>;

attributes_t by_name(const util::CFileInfo& info) {
    attributes_t result;
    for (const util::SExtendedAttribute& attribute : info.attributes) {
        result[attribute.name] = attribute.value;
    }
    return result;
}

void compare_extended(const util::CFileInfo& first, const util::CFileInfo& second, std::vector<std::string>& out) {
    const attributes_t left = by_name(first);
    const attributes_t right = by_name(second);
    for (const auto& [name, value] : left) {
        const auto found = right.find(name);
        if (found == right.end()) {
            out.push_back(util::str_format("extended attribute %1 is missing in the second", name));
        } else if (found->second != value) {
            out.push_back(util::str_format("extended attribute %1 differs", name));
        }
    }
    for (const auto& [name, value] : right) {
        if (left.count(name) == 0) {
            out.push_back(util::str_format("extended attribute %1 is only in the second", name));
        }
    }
}

}  // namespace

std::vector<std::string> CompareAttributes(const util::CFileInfo& first, const util::CFileInfo& second,
                                           const verify_options_t& options) {
    std::vector<std::string> out;
    if (options.owners) {
        compare_principal("owner", first.owner, second.owner, options.numericOwner, out);
        compare_principal("group", first.group, second.group, options.numericOwner, out);
    }
    if (!first.isSymlink() && first.mode != second.mode) {
        out.push_back(util::str_format("mode %1 against %2", octal(first.mode), octal(second.mode)));
    }
    if (first.modificationTime != second.modificationTime) {
        out.push_back(util::str_format("modification time %1 against %2", time_text(first.modificationTime),
                                       time_text(second.modificationTime)));
    }
    compare_extended(first, second, out);
    return out;
}

}  // namespace agent::verify
