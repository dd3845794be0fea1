#include "agent/gate/path_gate.h"

#include <string_view>

#include "agent/gate/session_scope.h"
#include "agent/root/name_rules.h"
#include "corvel/corvel_ctx.h"
#include "mirrowen/util/str.h"

namespace agent {

namespace {

/// The one form of another backend's path without "://".
constexpr std::string_view kTapePrefix = "tdatafs:\\\\";

bool IsForOtherBackend(std::string_view path) noexcept {
    return path.find("://") != std::string_view::npos ||
           util::str_caseicmp(path.substr(0, kTapePrefix.size()), kTapePrefix);
}

/// "." asks for the root and "name/." for a directory of that name: a peer tells directories from files with them in
/// the existence query. What is left is the name that has to be safe; empty for the root.
std::string_view WithoutDirectoryProbe(std::string_view path) noexcept {
    if (path == ".") {
        return {};
    }
    return path.size() > 2 && path.ends_with("/.") ? path.substr(0, path.size() - 2) : path;
}

}  // namespace

std::string MapSessionPath(const std::string& path) {
    if (session_scope_t::IsActive()) {
        if (IsForOtherBackend(path)) {
            ThrowRefused(path, "a session serves names below its root only");
        }
        const std::string_view name = WithoutDirectoryProbe(path);
        if (!name.empty() || path.empty()) {
            CheckName(name);
        }
    }
    return path;
}

void InstallPathGate(CCorvelCtx& context) {
    context.SetRelativePathMapper(&MapSessionPath);
}

}  // namespace agent
