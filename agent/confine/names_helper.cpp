#include "agent/confine/names_helper.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "agent/confine/capabilities.h"
#include "agent/confine/name_answers.h"
#include "mirrowen/posix/errno_exc.h"

namespace agent {

namespace {

constexpr int kSocket = 3;  // where the child keeps its end
constexpr std::chrono::seconds kRemembered{30};
constexpr int kReapTries = 1000;

[[noreturn]] void Fail() {
    throw posix::errno_exc_t("Failed to start a process for [%1]", "owner names", errno);
}

void CloseFrom(unsigned first) {
    if (::syscall(SYS_close_range, first, ~0U, 0U) != 0) {
        const long end = ::sysconf(_SC_OPEN_MAX);
        for (long fd = first; fd < end; ++fd) {
            ::close(static_cast<int>(fd));
        }
    }
}

// Standard error stays: a look-up that fails leaves a line in the log.
bool KeepOnly(int socket) {
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    const int high = ::fcntl(socket, F_DUPFD, kSocket + 1);
    if (null < 0 || high < 0 || ::dup2(null, STDIN_FILENO) < 0 || ::dup2(null, STDOUT_FILENO) < 0 ||
        ::dup2(high, kSocket) < 0) {
        return false;
    }
    CloseFrom(kSocket + 1);
    return true;
}

[[noreturn]] void Become(int socket, pid_t parent, util::IUserNames& names) noexcept {
    try {
        for (const int ignored : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
            ::signal(ignored, SIG_IGN);
        }
        // Should the parent have died before, its end of the pair is closed and the first read ends this process.
        if (::prctl(PR_SET_NAME, "tarn-names") == 0 && ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 &&
            ::getppid() == parent && KeepOnly(socket) && ::chdir("/") == 0) {
            ForgoPrivileges(0);
            AnswerNames(kSocket, names);
        }
    } catch (...) {  // out of memory, for one: the parent sees the end of the connection
    }
    ::_exit(0);
}

}  // namespace

names_helper_t::names_helper_t() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        Fail();
    }
    posix::unique_fd_t ours(ends[0]);
    const posix::unique_fd_t theirs(ends[1]);
    util::IUserNames& names = util::user_names();
    const pid_t parent = ::getpid();
    child_ = ::fork();
    if (child_ == 0) {
        Become(theirs.get(), parent, names);
    }
    if (child_ < 0) {
        Fail();
    }
    client_ = std::make_unique<names_client_t>(std::move(ours));
    memory_ = std::make_unique<util::remembering_user_names_t>(*client_, kRemembered);
    scope_ = std::make_unique<util::scoped_user_names_t>(*memory_);
}

names_helper_t::~names_helper_t() {
    scope_.reset();
    client_->Close();
    for (int tries = 0; tries < kReapTries && ::waitpid(child_, nullptr, WNOHANG) == 0; ++tries) {
        ::usleep(1000);
    }
}

}  // namespace agent
