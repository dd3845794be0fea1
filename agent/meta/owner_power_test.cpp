#include "agent/meta/owner_power.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>

#include "tests/support/temp_dir.h"

namespace agent {
namespace {

// What `CanGiveAnyOwner` says in a child that has done `prepare`: 0 or 1, or 2 when it could not be prepared.
int AskInChild(const std::function<bool()>& prepare) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(!prepare() ? 2 : CanGiveAnyOwner() ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WEXITSTATUS(status);
}

TEST(OwnerPower, AgreesWithWhatTheSystemAllows) {
    const tests::temp_dir_t dir;
    const std::string path = dir / "file";
    tests::WriteFile(path, "");
    EXPECT_EQ(CanGiveAnyOwner(), ::chown(path.c_str(), 12345, 23456) == 0);
}

TEST(OwnerPower, OrdinaryUserHasNone) {
    const auto become = [] { return ::geteuid() != 0 || ::setresuid(65534, 65534, 65534) == 0; };
    EXPECT_EQ(AskInChild(become), 0);
}

TEST(OwnerPower, AloneInItsNamespaceItHasNone) {
    const auto enter = [uid = ::geteuid()] {
        if (::unshare(CLONE_NEWUSER) != 0) {
            return false;
        }
        std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
        return ::geteuid() == 0;
    };
    const int answer = AskInChild(enter);
    if (answer == 2) {
        GTEST_SKIP() << "this machine allows no user namespaces";
    }
    EXPECT_EQ(answer, 0);
}

}  // namespace
}  // namespace agent
