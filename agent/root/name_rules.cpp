#include "agent/root/name_rules.h"

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str.h"

namespace agent {

namespace {

/// A refused name is shown up to here: its text travels to the peer and into logs.
constexpr std::size_t kMaxShownBytes = 300;

std::string_view FindComponentFault(std::string_view component) noexcept {
    if (component.empty()) {
        return "it has an empty component";
    }
    if (component == ".") {
        return "it has a component \".\"";
    }
    if (component == "..") {
        return "it has a component \"..\"";
    }
    if (component.size() > kMaxComponentBytes) {
        return "it has a component of more than 255 bytes";
    }
    return {};
}

std::string_view FindWholeFault(std::string_view name) noexcept {
    if (name.empty()) {
        return "it is empty";
    }
    if (name.size() > kMaxNameBytes) {
        return "it has more than 4095 bytes";
    }
    if (name.find('\0') != std::string_view::npos) {
        return "it contains a NUL byte";
    }
    if (name.front() == '/') {
        return "it is absolute";
    }
    return {};
}

}  // namespace

bool IsStagingFolder(std::string_view component) noexcept {
    return util::str_caseicmp(component, kStagingFolder);
}

std::string_view FindNameFault(std::string_view name, EStagingFolder staging) noexcept {
    if (const std::string_view fault = FindWholeFault(name); !fault.empty()) {
        return fault;
    }
    if (staging == EStagingFolder::eHidden && IsStagingFolder(name.substr(0, name.find('/')))) {
        return "the staging folder belongs to the agent";
    }
    while (true) {
        const std::size_t slash = name.find('/');
        if (const std::string_view fault = FindComponentFault(name.substr(0, slash)); !fault.empty()) {
            return fault;
        }
        if (slash == std::string_view::npos) {
            return {};
        }
        name.remove_prefix(slash + 1);
    }
}

std::string ShownName(std::string_view name) {
    std::string shown;
    for (const char byte : name.substr(0, kMaxShownBytes)) {
        if (byte == '\0') {
            shown += "\\x00";
        } else {
            shown += byte;
        }
    }
    return name.size() > kMaxShownBytes ? shown + "..." : shown;
}

void CheckName(std::string_view name, EStagingFolder staging) {
    if (const std::string_view fault = FindNameFault(name, staging); !fault.empty()) {
        ThrowRefused(name, fault);
    }
}

void ThrowRefused(std::string_view name, std::string_view fault) {
    throw exc::CRuntimeExc("Path [%1] is refused: %2.", ShownName(name), fault);
}

}  // namespace agent
