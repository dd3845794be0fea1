#pragma once

#include <grp.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "tests/support/in_child.h"

namespace tests {

/// Runs `action` in a child process without any privilege (user and group 65534) and returns its text; an exception
/// comes back as "threw: " and its text. Needs root. What the action changes in memory is lost.
inline std::string RunAsNobody(const std::function<std::string()>& action) {
    return RunInChild([&action]() -> std::string {
        constexpr unsigned kNobody = 65534;
        if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) {
            return "could not drop privileges";
        }
        return action();
    });
}

}  // namespace tests
