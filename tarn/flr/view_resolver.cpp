#include "tarn/flr/view_resolver.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <optional>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/str.h"

namespace tarn {
namespace {

using components_t = std::vector<std::string>;

constexpr int kMaxLinks = 40;  // as many as Linux follows
constexpr std::string_view kResolveFailed = "Failed to resolve symbolic links of [%1]";

components_t Split(std::string_view path) {
    components_t components = util::str_tokenize(path, "/");
    std::erase(components, std::string());
    return components;
}

std::string Join(const components_t& components) {
    std::string path;
    for (const std::string& component : components) {
        path += '/';
        path += component;
    }
    return path.empty() ? "/" : path;
}

bool IsDot(const std::string& component) {
    return component == "." || component == "..";
}

/// Takes one component to a directory by name.
void Enter(components_t& directory, std::string&& component) {
    if (component == "..") {
        if (!directory.empty()) {
            directory.pop_back();
        }
    } else if (component != ".") {
        directory.push_back(std::move(component));
    }
}

/// The target of the link at a host path, nothing when something else or nothing is there.
std::optional<std::string> ReadLink(const std::string& path) {
    std::array<char, PATH_MAX> target;
    const ssize_t length = posix::sys().readlinkat(AT_FDCWD, path.c_str(), target.data(), target.size());
    if (length >= 0) {
        return std::string(target.data(), static_cast<std::size_t>(length));
    }
    if (errno == EINVAL || errno == ENOENT || errno == ENOTDIR) {
        return std::nullopt;
    }
    throw posix::errno_exc_t(kResolveFailed, path, errno);
}

}  // namespace

/// One walk from the root of the view to the end of a path.
class view_resolver_t::walk_t {
  public:
    walk_t(const CFLRContext& rules, const std::string& path) : rules_(rules), path_(path) { Queue(Normalise(path)); }

    std::string Run(ELastLink lastLink) {
        while (!pending_.empty()) {
            std::string component = std::move(pending_.back());
            pending_.pop_back();
            const bool follow = !pending_.empty() || lastLink == ELastLink::eFollow;
            const bool plain = IsDot(component) || !follow || !FollowLink(component);
            if (plain) {
                Enter(done_, std::move(component));
            }
        }
        return Join(done_);
    }

  private:
    void Queue(std::string_view path) {
        components_t components = Split(path);
        std::move(components.rbegin(), components.rend(), std::back_inserter(pending_));
    }

    /// When the component is a link, queues its target and says so. What lies above the mount points has no links.
    bool FollowLink(const std::string& component) {
        components_t candidate = done_;
        candidate.push_back(component);
        std::string real;
        if (!rules_.TryMapPath(Join(candidate), real)) {
            return false;
        }
        const std::optional<std::string> target = ReadLink(real);
        if (!target) {
            return false;
        }
        if (++links_ > kMaxLinks) {
            throw posix::errno_exc_t(kResolveFailed, path_, ELOOP);
        }
        if (target->starts_with('/')) {
            done_.clear();
        }
        Queue(*target);
        return true;
    }

    const CFLRContext& rules_;
    const std::string& path_;
    components_t done_;     ///< from the root of the view, without links
    components_t pending_;  ///< what is left to walk, next one last
    int links_ = 0;
};

std::string view_resolver_t::Resolve(const std::string& path, ELastLink lastLink) const {
    return MapExc(rules_, ResolveInView(path, lastLink));
}

std::string view_resolver_t::ResolveInView(const std::string& path, ELastLink lastLink) const {
    return walk_t(rules_, path).Run(lastLink);
}

std::string view_resolver_t::MapExc(const CFLRContext& rules, const std::string& path) {
    std::string real;
    if (!rules.TryMapPath(path, real)) {
        throw exc::CRuntimeExc("No suitable mapping rule was found for a given path.");
    }
    return real;
}

std::string view_resolver_t::Normalise(const std::string& path) {
    components_t components = Split(path);
    if (std::none_of(components.begin(), components.end(), IsDot)) {
        return path;
    }
    components_t directory;
    for (std::string& component : components) {
        Enter(directory, std::move(component));
    }
    return Join(directory);
}

}  // namespace tarn
