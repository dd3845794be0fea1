#include "agent/confine/landlock.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "agent/confine/capabilities.h"
#include "agent/net/socket.h"
#include "tests/support/in_child.h"
#include "tests/support/temp_dir.h"

namespace agent {
namespace {

std::string Outcome(long result) {
    return result >= 0 ? "ok" : ::strerrorname_np(errno);
}

// In the order in which they stand, as the elements of a list are made.
std::string Join(std::initializer_list<std::string> outcomes) {
    std::string text;
    for (const std::string& outcome : outcomes) {
        text += (text.empty() ? "" : " ") + outcome;
    }
    return text;
}

/// A directory that a child is restricted to and, beside it, one that it must not touch.
class Landlock : public testing::Test {
  protected:
    void SetUp() override {
        if (LandlockVersion() < 2) {
            GTEST_SKIP() << "the kernel offers no Landlock that serves: version " << LandlockVersion();
        }
        for (const char* const name : {"root", "root/sub", "canary"}) {
            ASSERT_EQ(::mkdir((dir_ / name).c_str(), 0777), 0);
        }
        tests::WriteFile(dir_ / "canary/file", "canary");
        tests::WriteFile(dir_ / "root/file", "x");
    }

    /// What `action` returns in a child that is restricted and stands in the root; `outside` is the other directory,
    /// opened before.
    std::string Restricted(const std::function<std::string(int outside)>& action) const {
        return tests::RunInChild([&]() -> std::string {
            const int outside = ::open((dir_ / "canary").c_str(), O_RDONLY | O_DIRECTORY);
            const int root = ::open((dir_ / "root").c_str(), O_PATH | O_DIRECTORY);
            if (::fchdir(root) != 0) {
                return "no root";
            }
            ForgoPrivileges(EffectiveCapabilities());
            if (RestrictToDirectory(root) != LandlockVersion()) {
                return "not restricted";
            }
            return action(outside);
        });
    }

    tests::temp_dir_t dir_;
};

TEST_F(Landlock, InsideATreeCanBeKept) {
    EXPECT_EQ(Restricted([](int) {
                  const int fd = ::open("sub/new", O_RDWR | O_CREAT | O_EXCL, 0600);
                  return Join({Outcome(fd), Outcome(::ftruncate(fd, 5)), Outcome(::rename("sub/new", "moved")),
                               Outcome(::link("moved", "sub/second")), Outcome(::symlink("/any", "sub/link")),
                               Outcome(::mkdir("made", 0700)), Outcome(::rename("made", "sub/made")),
                               Outcome(::rmdir("sub/made")), Outcome(::unlink("moved")), Outcome(::truncate("file", 0)),
                               Outcome(::chmod("file", 0640)), Outcome(::open("sub", O_RDONLY | O_DIRECTORY))});
              }),
              "ok ok ok ok ok ok ok ok ok ok ok ok");
}

TEST_F(Landlock, ADescriptorFromBeforeDoesNotLeadOut) {
    EXPECT_EQ(
        Restricted([](int outside) {
            return Join({Outcome(::openat(outside, "file", O_RDONLY)), Outcome(::openat(outside, "file", O_WRONLY)),
                         Outcome(::openat(outside, "new", O_WRONLY | O_CREAT, 0600)),
                         Outcome(::mkdirat(outside, "new", 0700)), Outcome(::symlinkat("x", outside, "new")),
                         Outcome(::unlinkat(outside, "file", 0)), Outcome(::renameat(AT_FDCWD, "file", outside, "new")),
                         Outcome(::renameat(outside, "file", AT_FDCWD, "new")),
                         Outcome(::linkat(outside, "file", AT_FDCWD, "new", 0)),
                         Outcome(::openat(outside, ".", O_RDONLY | O_DIRECTORY))});
        }),
        "EACCES EACCES EACCES EACCES EACCES EACCES EACCES EACCES EXDEV EACCES");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_ / "canary"), {}), 1);
}

TEST_F(Landlock, AbsolutePathsDoNotLeadOut) {
    EXPECT_EQ(Restricted([&](int) {
                  return Join({Outcome(::open((dir_ / "canary/file").c_str(), O_RDONLY)),
                               Outcome(::open("../canary/file", O_RDONLY)), Outcome(::open("/etc/passwd", O_RDONLY))});
              }),
              "EACCES EACCES EACCES");
}

// Why it stands on top of a mount namespace.
TEST_F(Landlock, AttributesOfWhatAPathReachesAreNotItsBusiness) {
    EXPECT_EQ(Restricted([](int outside) { return Outcome(::fchmodat(outside, "file", 0600, 0)); }), "ok");
}

TEST_F(Landlock, NothingIsExecutedAndNoNodeIsMade) {
    std::filesystem::copy_file("/bin/true", dir_ / "root/true");
    EXPECT_EQ(Restricted([](int) {
                  char name[] = "true";
                  char* const arguments[] = {name, nullptr};
                  sockaddr_un address{AF_UNIX, "socket"};
                  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
                  return Join({Outcome(::execv("./true", arguments)), Outcome(::execv("/bin/true", arguments)),
                               Outcome(::mkfifo("pipe", 0600)),
                               Outcome(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address))});
              }),
              "EACCES EACCES EACCES EACCES");
}

TEST_F(Landlock, NoConnectionIsMadeButASocketThatListensGoesOn) {
    if (LandlockVersion() < 4) {
        GTEST_SKIP() << "the kernel's Landlock knows nothing of TCP: version " << LandlockVersion();
    }
    const posix::unique_fd_t listening = net::Listen({"127.0.0.1", 0}, net::EReach::eLoopback);
    const net::endpoint_t here = net::LocalEndpoint(listening.get());
    const posix::unique_fd_t waiting = net::Connect(here, {synch::deadline_t::After(std::chrono::seconds(10)), {}});
    EXPECT_EQ(Restricted([&](int) {
                  sockaddr_in address{};
                  address.sin_family = AF_INET;
                  address.sin_port = htons(here.port);
                  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
                  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
                  return Join({Outcome(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address)),
                               Outcome(net::Accept(listening.get()).get())});
              }),
              "EACCES ok");
}

TEST_F(Landlock, NoSignalReachesAnotherProcess) {
    if (LandlockVersion() < 6) {
        GTEST_SKIP() << "the kernel's Landlock knows nothing of signals: version " << LandlockVersion();
    }
    const pid_t parent = ::getpid();
    EXPECT_EQ(Restricted([parent](int) {
                  return Join({Outcome(::kill(parent, 0)), Outcome(::kill(::getpid(), 0))});
              }),
              "EPERM ok");
}

}  // namespace
}  // namespace agent
