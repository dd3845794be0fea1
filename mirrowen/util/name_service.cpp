#include "mirrowen/util/name_service.h"

#include <grp.h>
#include <pwd.h>

#include <atomic>
#include <cerrno>
#include <string_view>
#include <vector>

#include "mirrowen/logging/log_section.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/util/remembering_user_names.h"

namespace util {

namespace {

constinit logging::log_section_t util_log("util");

/// How long an account that was changed meanwhile is still told as it was.
constexpr std::chrono::seconds kKept{30};

constexpr std::size_t kFirstBuffer = 1024;
constexpr std::size_t kLargestBuffer = std::size_t{1} << 20;

// What the manual pages list for "no such entry".
bool IsAbsence(int error) {
    return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

// Runs one of the get..._r functions with a buffer that grows until the entry fits. `use` is given the entry found.
template <class Entry, class Key, class Use>
void LookUp(int (*function)(Key, Entry*, char*, std::size_t, Entry**), Key key, std::string_view what, Use use) {
    std::vector<char> buffer(kFirstBuffer);
    for (;;) {
        Entry entry;
        Entry* found = nullptr;
        const int error = function(key, &entry, buffer.data(), buffer.size(), &found);
        if (error == 0 && found != nullptr) {
            use(*found);
            return;
        }
        if (error == ERANGE && buffer.size() < kLargestBuffer) {
            buffer.resize(buffer.size() * 2);
        } else if (error != EINTR) {
            if (!IsAbsence(error)) {
                util_log.warn("Failed to look up [%1]: %2", what, posix::DescribeErrno(error));
            }
            return;
        }
    }
}

class host_user_names_t final : public IUserNames {
  public:
    std::string GetUserName(std::uint32_t id) override {
        std::string name;
        LookUp(&::getpwuid_r, uid_t{id}, std::to_string(id), [&](const passwd& entry) { name = entry.pw_name; });
        return name;
    }

    std::string GetGroupName(std::uint32_t id) override {
        std::string name;
        LookUp(&::getgrgid_r, gid_t{id}, std::to_string(id), [&](const group& entry) { name = entry.gr_name; });
        return name;
    }

    std::optional<std::uint32_t> FindUser(const std::string& name) override {
        std::optional<std::uint32_t> id;
        LookUp(&::getpwnam_r, name.c_str(), name, [&](const passwd& entry) { id = entry.pw_uid; });
        return id;
    }

    std::optional<std::uint32_t> FindGroup(const std::string& name) override {
        std::optional<std::uint32_t> id;
        LookUp(&::getgrnam_r, name.c_str(), name, [&](const group& entry) { id = entry.gr_gid; });
        return id;
    }
};

std::atomic<IUserNames*> g_replacement{nullptr};

}  // namespace

IUserNames::~IUserNames() = default;

IUserNames& user_names() noexcept {
    static host_user_names_t accounts;
    static remembering_user_names_t host(accounts, kKept);
    IUserNames* const replacement = g_replacement.load();
    return replacement != nullptr ? *replacement : host;
}

scoped_user_names_t::scoped_user_names_t(IUserNames& replacement) noexcept
    : previous_(g_replacement.exchange(&replacement)) {}

scoped_user_names_t::~scoped_user_names_t() {
    g_replacement.store(previous_);
}

}  // namespace util
