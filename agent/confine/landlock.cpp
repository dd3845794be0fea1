#include "agent/confine/landlock.h"

#include <linux/landlock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/unique_fd.h"

namespace agent {

namespace {

// The kernel's numbers (include/uapi/linux/landlock.h) beyond those of version 1, which the headers at hand may lack.
constexpr std::uint64_t kRefer = 1U << 13U;         // version 2
constexpr std::uint64_t kTruncate = 1U << 14U;      // version 3
constexpr std::uint64_t kControlDev = 1U << 15U;    // version 5
constexpr std::uint64_t kBindTcp = 1U << 0U;        // version 4
constexpr std::uint64_t kConnectTcp = 1U << 1U;     // version 4
constexpr std::uint64_t kScopeAbstract = 1U << 0U;  // version 6
constexpr std::uint64_t kScopeSignal = 1U << 1U;    // version 6

constexpr int kOldest = 2;

// struct landlock_ruleset_attr as of version 6; older kernels want what they do not know to be zero.
struct ruleset_t {
    std::uint64_t files;
    std::uint64_t network;
    std::uint64_t scoped;
};

constexpr std::uint64_t kAllowed = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_READ_FILE |
                                   LANDLOCK_ACCESS_FS_READ_DIR | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                                   LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR |
                                   LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SYM | kRefer | kTruncate;

constexpr std::uint64_t kDenied = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                                  LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                                  LANDLOCK_ACCESS_FS_MAKE_BLOCK | kControlDev;

ruleset_t RulesetOf(int version) {
    ruleset_t ruleset{};
    ruleset.files = kAllowed | kDenied;
    if (version < 3) {
        ruleset.files &= ~kTruncate;
    }
    if (version < 5) {
        ruleset.files &= ~kControlDev;
    }
    ruleset.network = version < 4 ? 0 : kBindTcp | kConnectTcp;
    ruleset.scoped = version < 6 ? 0 : kScopeAbstract | kScopeSignal;
    return ruleset;
}

[[noreturn]] void Fail() {
    throw posix::errno_exc_t("Failed to apply [%1]", "Landlock", errno);
}

}  // namespace

int LandlockVersion() noexcept {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    return version > 0 ? static_cast<int>(version) : 0;
}

int RestrictToDirectory(int directory) {
    const int version = LandlockVersion();
    if (version < kOldest) {
        return 0;
    }
    const ruleset_t ruleset = RulesetOf(version);
    const posix::unique_fd_t rules(
        static_cast<int>(::syscall(SYS_landlock_create_ruleset, &ruleset, sizeof ruleset, 0)));
    if (!rules) {
        Fail();
    }
    landlock_path_beneath_attr beneath{};
    beneath.allowed_access = kAllowed & ruleset.files;
    beneath.parent_fd = directory;
    if (::syscall(SYS_landlock_add_rule, rules.get(), LANDLOCK_RULE_PATH_BENEATH, &beneath, 0) != 0 ||
        ::syscall(SYS_landlock_restrict_self, rules.get(), 0) != 0) {
        Fail();
    }
    return version;
}

}  // namespace agent
