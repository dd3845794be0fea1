#include "agent/confine/names_helper.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

#include "tests/support/fake_user_names.h"
#include "tests/support/in_child.h"
#include "tests/support/log_capture.h"
#include "tests/support/raw_peer.h"

namespace agent {
namespace {

// Whether the process comes to its end within reasonable time; it need not be our child.
bool Ends(pid_t process) {
    const auto end = std::chrono::steady_clock::now() + tests::kPatience;
    while (std::filesystem::exists("/proc/" + std::to_string(process) + "/exe")) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        ::poll(nullptr, 0, 1);
    }
    return true;
}

std::string StatusOf(pid_t process, const std::string& field) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0) {
            return line.substr(field.size() + 2);
        }
    }
    return "?";
}

TEST(NamesHelper, NamesAreFoundByAnotherProcess) {
    const names_helper_t helper;
    EXPECT_NE(helper.GetProcess(), ::getpid());
    EXPECT_EQ(util::user_names().GetUserName(0), "root");
    EXPECT_EQ(util::user_names().GetGroupName(0), "root");
    EXPECT_EQ(util::user_names().FindUser("root"), 0U);
    EXPECT_EQ(util::user_names().FindGroup("no such group here"), std::nullopt);
}

TEST(NamesHelper, ItAsksTheServiceThatWasInForceAndLeavesThatBehind) {
    tests::fake_user_names_t names;
    names.users["seven"] = 7;
    {
        const names_helper_t helper;
        names.users.clear();  // here only
        EXPECT_EQ(util::user_names().GetUserName(7), "seven");
    }
    EXPECT_EQ(util::user_names().GetUserName(7), "");
}

TEST(NamesHelper, WhoSeesNothingOfTheHostStillFindsNames) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root for chroot";
    }
    const std::string names = tests::RunInChild([] {
        const names_helper_t helper;
        if (::chroot("/proc/self/fdinfo") != 0 || ::chdir("/") != 0 || ::access("/etc/passwd", F_OK) == 0) {
            return std::string("not confined");
        }
        return util::user_names().GetUserName(0) + " " +
               std::to_string(util::user_names().FindGroup("root").value_or(99));
    });
    EXPECT_EQ(names, "root 0");
}

TEST(NamesHelper, ItHoldsNothingButItsSocketAndStandardError) {
    const posix::unique_fd_t other(::open("/", O_RDONLY | O_DIRECTORY));
    const names_helper_t helper;
    util::user_names().GetUserName(0);  // it has begun
    std::vector<std::string> held;
    const std::string process = "/proc/" + std::to_string(helper.GetProcess());
    for (const auto& entry : std::filesystem::directory_iterator(process + "/fd")) {
        held.push_back(entry.path().filename().string());
    }
    std::sort(held.begin(), held.end());
    EXPECT_EQ(held, (std::vector<std::string>{"0", "1", "2", "3"}));
    EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/0"), "/dev/null");
    EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/1"), "/dev/null");
    EXPECT_EQ(std::filesystem::read_symlink(process + "/cwd"), "/");
}

TEST(NamesHelper, ItHasNoPrivilege) {
    const names_helper_t helper;
    util::user_names().GetUserName(0);
    EXPECT_EQ(StatusOf(helper.GetProcess(), "CapEff"), "0000000000000000");
    EXPECT_EQ(StatusOf(helper.GetProcess(), "CapPrm"), "0000000000000000");
    EXPECT_EQ(StatusOf(helper.GetProcess(), "NoNewPrivs"), "1");
}

TEST(NamesHelper, ItEndsWithTheObjectAndLeavesNoZombie) {
    pid_t process = 0;
    {
        const names_helper_t helper;
        process = helper.GetProcess();
    }
    EXPECT_EQ(::kill(process, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST(NamesHelper, ItEndsWhenItsParentIsKilled) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t parent = ::fork();
    if (parent == 0) {
        const names_helper_t helper;
        const pid_t process = helper.GetProcess();
        (void)!::write(ends[1], &process, sizeof process);
        ::pause();
        ::_exit(0);
    }
    pid_t process = 0;
    ASSERT_EQ(::read(ends[0], &process, sizeof process), static_cast<ssize_t>(sizeof process));
    ::close(ends[0]);
    ::close(ends[1]);
    ::kill(parent, SIGKILL);
    ::waitpid(parent, nullptr, 0);
    EXPECT_TRUE(Ends(process));
}

TEST(NamesHelper, SignalsThatEndTheServerAreNotForIt) {
    const names_helper_t helper;
    EXPECT_EQ(util::user_names().GetUserName(0), "root");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ASSERT_EQ(::kill(helper.GetProcess(), signal), 0);
    }
    EXPECT_EQ(util::user_names().GetGroupName(0), "root");
}

TEST(NamesHelper, ItsDeathIsSaidAndOwnersGoByNumber) {
    tests::log_capture_t log(logging::ELevel::eErr);
    {
        const names_helper_t helper;
        EXPECT_EQ(util::user_names().GetUserName(0), "root");
        ::kill(helper.GetProcess(), SIGKILL);
        ASSERT_TRUE(Ends(helper.GetProcess()));
        EXPECT_EQ(util::user_names().GetGroupName(0), "");
        EXPECT_EQ(util::user_names().FindUser("root"), std::nullopt);
        EXPECT_EQ(util::user_names().GetUserName(0), "root");  // remembered
    }
    EXPECT_TRUE(log.Has(logging::ELevel::eErr,
                        "The process that looks up owners' names has ended; owners go by their numbers from now on."))
        << log.Dump();
}

}  // namespace
}  // namespace agent
