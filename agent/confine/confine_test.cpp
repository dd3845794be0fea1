#include "agent/confine/confine.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <utility>

#include "agent/confine/capabilities.h"
#include "agent/confine/landlock.h"
#include "agent/confine/names_helper.h"
#include "tests/support/as_nobody.h"
#include "tests/support/deny_call.h"
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

std::string Contents(const std::string& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

posix::unique_fd_t Open(const std::string& directory) {
    return posix::unique_fd_t(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// A root with a file and with links that lead out of it, and beside it a canary that nothing may reach.
class confine_fixture_t : public testing::Test {
  protected:
    confine_fixture_t() : root_(dir_ / "root"), canary_(dir_ / "canary") {
        std::filesystem::permissions(dir_.path(), std::filesystem::perms::all);
        for (const std::string& directory : {root_, root_ + "/sub", canary_}) {
            std::filesystem::create_directory(directory);
            std::filesystem::permissions(directory, std::filesystem::perms::all);
        }
        tests::WriteFile(root_ + "/file", "inside");
        tests::WriteFile(canary_ + "/file", "canary");
        for (const std::string& file : {root_ + "/file", canary_ + "/file"}) {
            std::filesystem::permissions(file, static_cast<std::filesystem::perms>(0666));
        }
        std::filesystem::create_symlink(canary_, root_ + "/absolute");
        std::filesystem::create_symlink("../canary", root_ + "/upward");
        std::filesystem::create_symlink("../../canary/file", root_ + "/sub/file");
    }

    /// The result of `action` in a child that is confined to the root.
    std::string Confined(const std::function<std::string()>& action) const {
        return Run([&] {
            Confine(Open(root_), root_);
            return action();
        });
    }

    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, which can also play an ordinary user";
        }
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the thread sanitizer starts a thread in every forked child, so that none can be confined";
#endif
    }

    virtual std::string Run(const std::function<std::string()>& action) const {
        return tests::RunInChild(action);
    }

    tests::temp_dir_t dir_;
    const std::string root_;
    const std::string canary_;
};

/// As root, where the mount namespace is made directly, and as an ordinary user, in a user namespace.
class ConfinedProcess : public confine_fixture_t, public testing::WithParamInterface<const char*> {
  protected:
    bool IsRoot() const { return std::string_view(GetParam()) == "root"; }
    std::string Run(const std::function<std::string()>& action) const override {
        return IsRoot() ? tests::RunInChild(action) : tests::RunAsNobody(action);
    }
};

INSTANTIATE_TEST_SUITE_P(As, ConfinedProcess, testing::Values("root", "nobody"),
                         [](const auto& user) { return std::string(user.param); });

TEST_P(ConfinedProcess, KnowsWhatHoldsIt) {
    EXPECT_EQ(Run([&] {
                  const confinement_t confinement = Confine(Open(root_), root_);
                  return std::to_string(static_cast<int>(confinement.by)) + " " + std::to_string(confinement.landlock);
              }),
              std::string(IsRoot() ? "0 " : "1 ") + std::to_string(LandlockVersion()));
}

TEST_P(ConfinedProcess, SeesNothingButTheDirectory) {
    EXPECT_EQ(Confined([] {
                  std::vector<std::string> names;
                  for (const auto& entry : std::filesystem::directory_iterator("/")) {
                      names.push_back(entry.path().string());
                  }
                  std::sort(names.begin(), names.end());
                  std::string text = std::filesystem::current_path().string() + ":";
                  for (const std::string& name : names) {
                      text += " " + name;
                  }
                  return Join({text, Outcome(::access("/etc/passwd", F_OK)), Outcome(::access("/proc", F_OK)),
                               Contents("/../../file")});
              }),
              "/: /absolute /file /sub /upward ENOENT ENOENT inside");
}

TEST_P(ConfinedProcess, NoPathLeadsOutForAnyCall) {
    const std::array<std::string, 6> paths = {canary_ + "/file", "../canary/file",
                                              "/absolute/file",  "upward/file",
                                              "/sub/file",       "/../../../../.." + canary_ + "/file"};
    EXPECT_EQ(Confined([&] {
                  std::string reached;
                  const auto note = [&](const char* call, const std::string& path, long result) {
                      if (result >= 0 || errno != ENOENT) {
                          reached += std::string(call) + " " + path + ": " + Outcome(result) + "\n";
                      }
                  };
                  for (const std::string& text : paths) {
                      const char* const path = text.c_str();
                      struct stat status {};
                      const std::array<timespec, 2> times{};
                      std::array<char, 16> value{};
                      note("open", text, ::open(path, O_RDONLY));
                      note("open to write", text, ::open(path, O_WRONLY | O_TRUNC));
                      note("stat", text, ::stat(path, &status));
                      note("chmod", text, ::chmod(path, 0));
                      note("chown", text, ::chown(path, ::geteuid(), ::getegid()));
                      note("utimensat", text, ::utimensat(AT_FDCWD, path, times.data(), 0));
                      note("truncate", text, ::truncate(path, 0));
                      note("setxattr", text, ::setxattr(path, "user.planted", "x", 1, 0));
                      note("getxattr", text, ::getxattr(path, "user.planted", value.data(), value.size()));
                      if (text != "/sub/file") {  // the link itself may be handled
                          note("rename", text, ::rename(path, "/taken"));
                          note("link", text, ::link(path, "/linked"));
                          note("unlink", text, ::unlink(path));
                      }
                  }
                  return reached;
              }),
              "");
    EXPECT_EQ(tests::ReadFile(canary_ + "/file"), "canary");
    EXPECT_EQ(std::filesystem::status(canary_ + "/file").permissions(), static_cast<std::filesystem::perms>(0666));
}

TEST_P(ConfinedProcess, WorksBelowTheDirectoryAsBefore) {
    EXPECT_EQ(Confined([] {
                  const int fd = ::open("/sub/new", O_RDWR | O_CREAT | O_EXCL, 0640);
                  struct stat status {};
                  return Join({Outcome(fd), Outcome(::write(fd, "data", 4)), Outcome(::fsync(fd)),
                               Outcome(::fstat(fd, &status)), Outcome(status.st_uid == ::geteuid() ? 0 : -1),
                               Outcome(::renameat2(AT_FDCWD, "sub/new", AT_FDCWD, "moved", RENAME_NOREPLACE)),
                               Outcome(::link("moved", "sub/second")), Outcome(::chmod("moved", 0600)),
                               Outcome(::setxattr("moved", "user.a", "1", 1, 0)), Outcome(::mkdir("made", 0700)),
                               Outcome(::unlink("sub/second")), Contents("moved")});
              }),
              "ok ok ok ok ok ok ok ok ok ok ok data");
    EXPECT_EQ(tests::ReadFile(root_ + "/moved"), "data");
}

TEST_P(ConfinedProcess, DescriptorsOfDirectoriesFromBeforeLeadNowhere) {
    EXPECT_EQ(Run([&] {
                  const posix::unique_fd_t outside = Open(canary_);
                  const posix::unique_fd_t inside = Open(root_);
                  const posix::unique_fd_t bare(::open("/", O_PATH));
                  Confine(Open(root_), root_);
                  struct stat status {};
                  return Join({Outcome(::openat(outside.get(), "file", O_RDONLY)),
                               Outcome(::openat(inside.get(), "../canary/file", O_RDONLY)),
                               Outcome(::fstatat(bare.get(), "etc", &status, 0)), Outcome(::fchdir(outside.get()))});
              }),
              "ENOTDIR ENOTDIR ENOTDIR ENOTDIR");
}

TEST_P(ConfinedProcess, FilesThatWereOpenStayOpen) {
    EXPECT_EQ(Run([&] {
                  const posix::unique_fd_t file(::open((canary_ + "/file").c_str(), O_RDONLY));
                  Confine(Open(root_), root_);
                  std::array<char, 6> bytes{};
                  const ssize_t got = ::read(file.get(), bytes.data(), bytes.size());
                  return std::string(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
              }),
              "canary");
}

TEST_P(ConfinedProcess, CannotUndoIt) {
    EXPECT_EQ(
        Confined([] {
            char name[] = "/file";
            char* const arguments[] = {name, nullptr};
            return Join({Outcome(::unshare(CLONE_NEWNS)), Outcome(::mount("/", "/sub", nullptr, MS_BIND, nullptr)),
                         Outcome(::umount2("/", MNT_DETACH)), Outcome(::chroot("/sub")),
                         Outcome(::syscall(SYS_pivot_root, "/", "/sub")),
                         Outcome(::mknod("device", S_IFCHR | 0666, 0x103)), Outcome(::execv(name, arguments))});
        }),
        "EPERM EPERM EPERM EPERM EPERM EACCES EACCES");
}

TEST_P(ConfinedProcess, KeepsOnlyTheCapabilitiesThatItsWorkTakes) {
    const capability_set_t kept = CapabilityBit(CAP_CHOWN) | CapabilityBit(CAP_DAC_OVERRIDE) |
                                  CapabilityBit(CAP_FOWNER) | CapabilityBit(CAP_FSETID) | CapabilityBit(CAP_SETFCAP);
    EXPECT_EQ(Confined([] { return std::to_string(EffectiveCapabilities()); }), std::to_string(IsRoot() ? kept : 0));
}

TEST_P(ConfinedProcess, GivesFilesTheOwnersThatItMay) {
    EXPECT_EQ(Confined([] { return Outcome(::chown("/file", 1234, 5678)); }), IsRoot() ? "ok" : "EINVAL");
    struct stat status {};
    ASSERT_EQ(::stat((root_ + "/file").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, IsRoot() ? 1234U : 0U);
}

TEST_P(ConfinedProcess, StillFindsNamesThroughItsHelper) {
    EXPECT_EQ(Run([&] {
                  const names_helper_t helper;
                  Confine(Open(root_), root_);
                  return util::user_names().GetUserName(0) + " " +
                         std::to_string(util::user_names().FindGroup("root").value_or(99));
              }),
              "root 0");
}

TEST_P(ConfinedProcess, MustBeAlone) {
    EXPECT_EQ(Run([&]() -> std::string {
                  std::jthread other([](const std::stop_token& stop) {
                      while (!stop.stop_requested()) {
                          ::poll(nullptr, 0, 1);
                      }
                  });
                  try {
                      Confine(Open(root_), "shown");
                  } catch (const confine_exc_t& error) {
                      return error.what() + std::string(::access("/etc/passwd", F_OK) == 0 ? "" : " confined");
                  }
                  return "confined";
              }),
              "Failed to confine the process to [shown].\nThe process has more than one thread.");
}

TEST_P(ConfinedProcess, IsRefusedWhereTheHostForbidsNamespaces) {
    EXPECT_EQ(Run([&]() -> std::string {
                  if (!tests::DenyCall(SYS_unshare, EPERM)) {
                      return "not denied";
                  }
                  Confine(Open(root_), "shown");
                  return "confined";
              }),
              std::string("threw: Failed to confine the process to [shown].\nFailed to make a [") +
                  (IsRoot() ? "mount" : "user") + "] namespace: Operation not permitted");
}

TEST_P(ConfinedProcess, IsConfinedWithoutLandlockToo) {
    EXPECT_EQ(
        Run([&]() -> std::string {
            if (!tests::DenyCall(SYS_landlock_create_ruleset, ENOSYS)) {
                return "not denied";
            }
            const confinement_t confinement = Confine(Open(root_), root_);
            return Join({std::to_string(confinement.landlock), Outcome(::access("/etc", F_OK)), Contents("file")});
        }),
        "0 ENOENT inside");
}

/// What only root can arrange.
class ConfinedRoot : public confine_fixture_t {};

TEST_F(ConfinedRoot, CannotOpenFilesByTheirHandles) {
    alignas(file_handle) std::array<char, sizeof(file_handle) + MAX_HANDLE_SZ> bytes{};
    auto* const handle = reinterpret_cast<file_handle*>(bytes.data());
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount = 0;
    ASSERT_EQ(::name_to_handle_at(AT_FDCWD, (canary_ + "/file").c_str(), handle, &mount, 0), 0);
    ASSERT_EQ(tests::RunInChild([&] {
                  const posix::unique_fd_t root = Open(root_);
                  return Outcome(::open_by_handle_at(root.get(), handle, O_RDONLY));
              }),
              "ok");
    EXPECT_EQ(Confined([&] {
                  const posix::unique_fd_t root = Open("/");
                  return Outcome(::open_by_handle_at(root.get(), handle, O_RDONLY));
              }),
              "EPERM");
}

TEST_F(ConfinedRoot, SeesWhatIsMountedBelow) {
    EXPECT_EQ(Run([&]() -> std::string {
                  if (::unshare(CLONE_NEWNS) != 0 ||
                      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                      ::mount("none", (root_ + "/sub").c_str(), "tmpfs", 0, nullptr) != 0) {
                      return "not mounted";
                  }
                  tests::WriteFile(root_ + "/sub/mounted", "there");
                  Confine(Open(root_), root_);
                  return Join({Contents("/sub/mounted"), Outcome(::rename("/file", "/sub/file")),
                               Outcome(::rename("/sub/mounted", "/sub/renamed"))});
              }),
              "there EXDEV ok");
}

TEST_F(ConfinedRoot, SeesWhatIsMountedBelowLater) {
    EXPECT_EQ(Run([&]() -> std::string {
                  if (::unshare(CLONE_NEWNS) != 0 ||
                      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                      ::mount("none", root_.c_str(), "tmpfs", 0, nullptr) != 0 ||
                      ::mount(nullptr, root_.c_str(), nullptr, MS_SHARED, nullptr) != 0) {
                      return "not mounted";
                  }
                  std::filesystem::create_directory(root_ + "/later");
                  std::array<int, 2> confined{};
                  std::array<int, 2> mounted{};
                  if (::pipe(confined.data()) != 0 || ::pipe(mounted.data()) != 0) {
                      return "no pipes";
                  }
                  const pid_t outer = ::fork();
                  char byte = 0;
                  if (outer == 0) {
                      ::close(confined[1]);
                      const bool done = ::read(confined[0], &byte, 1) == 1 &&
                                        ::mount("none", (root_ + "/later").c_str(), "tmpfs", 0, nullptr) == 0;
                      if (done) {
                          tests::WriteFile(root_ + "/later/file", "seen");
                      }
                      ::_exit(::write(mounted[1], &byte, 1) == 1 ? 0 : 1);
                  }
                  Confine(Open(root_), root_);
                  const bool turn = ::write(confined[1], &byte, 1) == 1 && ::read(mounted[0], &byte, 1) == 1;
                  ::waitpid(outer, nullptr, 0);
                  return turn ? Contents("/later/file") : "no turn";
              }),
              "seen");
}

TEST_F(ConfinedRoot, LetsGoOfEveryOtherMount) {
    std::array<int, 2> ready{};
    std::array<int, 2> go{};
    ASSERT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(go.data(), O_CLOEXEC), 0);
    char byte = 0;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(go[1]);
        Confine(Open(root_), root_);
        (void)!::write(ready[1], &byte, 1);
        (void)!::read(go[0], &byte, 1);
        ::_exit(0);
    }
    ::close(std::exchange(ready[1], -1));
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    std::ifstream mounts("/proc/" + std::to_string(child) + "/mountinfo");
    std::vector<std::string> lines;
    for (std::string line; std::getline(mounts, line);) {
        lines.push_back(line);
    }
    for (const int fd : {ready[0], ready[1], go[0], go[1]}) {
        ::close(fd);
    }
    ::waitpid(child, nullptr, 0);
    ASSERT_EQ(lines.size(), 1U) << testing::PrintToString(lines);
    EXPECT_NE(lines.front().find(" / rw,nosuid,nodev,noexec"), std::string::npos) << lines.front();
}

TEST_F(ConfinedRoot, WithoutTheRightToMountGoesByAUserNamespace) {
    EXPECT_EQ(
        Run([&] {
            ForgoPrivileges(CapabilityBit(CAP_CHOWN) | CapabilityBit(CAP_DAC_OVERRIDE) | CapabilityBit(CAP_SETFCAP));
            const confinement_t confinement = Confine(Open(root_), root_);
            return Join({std::to_string(static_cast<int>(confinement.by)), Outcome(::access("/etc", F_OK)),
                         Outcome(::chown("/file", 0, 0)), Outcome(::chown("/file", 1, 0))});
        }),
        "1 ENOENT ok EINVAL");
}

TEST_F(ConfinedRoot, IsRefusedWhereUserNamespacesHaveRunOut) {
    const std::string none = Run([&]() -> std::string {
        // A limit of a namespace of our own: the host's is not touched.
        if (::unshare(CLONE_NEWUSER) != 0) {
            return "no namespace";
        }
        tests::WriteFile("/proc/self/uid_map", "0 0 1\n");
        tests::WriteFile("/proc/sys/user/max_user_namespaces", "0\n");
        ForgoPrivileges(0);
        Confine(Open(root_), "shown");
        return "confined";
    });
    EXPECT_EQ(none,
              "threw: Failed to confine the process to [shown].\nFailed to make a [user] namespace: No space left on "
              "device");
}

TEST_F(ConfinedRoot, MayBeConfinedToTheRootOfTheHost) {
    EXPECT_EQ(Run([] {
                  Confine(Open("/"), "/");
                  return Join({Outcome(::access("/etc/passwd", R_OK)), Outcome(::chroot("/etc"))});
              }),
              "ok EPERM");
}

}  // namespace
}  // namespace agent
