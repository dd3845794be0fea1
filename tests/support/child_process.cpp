#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>

#include "tests/support/raw_peer.h"

extern char** environ;

namespace tests {

namespace {

std::vector<char*> PointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

child_process_t::child_process_t(const std::vector<std::string>& words, const std::vector<std::string>& environment) {
    std::vector<std::string> arguments = words;
    std::vector<std::string> variables = environment;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        variables.emplace_back(*variable);
    }
    const std::vector<char*> argumentPointers = PointersTo(arguments);
    const std::vector<char*> variablePointers = PointersTo(variables);
    std::array<int, 2> ends{};
    errors_ = ::memfd_create("errors", MFD_CLOEXEC);
    if (errors_ < 0 || ::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe for the child");
    }
    output_ = ends[0];
    child_ = ::fork();
    if (child_ == 0) {
        if (::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && ::dup2(ends[1], STDOUT_FILENO) >= 0 &&
            ::dup2(errors_, STDERR_FILENO) >= 0) {
            ::execve(argumentPointers[0], argumentPointers.data(), variablePointers.data());
        }
        ::_exit(127);
    }
    ::close(ends[1]);
    handle_ = static_cast<int>(::syscall(SYS_pidfd_open, child_, 0));
    if (handle_ < 0) {
        throw std::runtime_error("no child");
    }
}

child_process_t::~child_process_t() {
    Kill(SIGKILL);
    if (!status_ && child_ > 0) {
        ::waitpid(child_, nullptr, 0);
    }
    for (const int fd : {handle_, output_, errors_}) {
        ::close(fd);
    }
}

void child_process_t::Kill(int signal) const noexcept {
    ::syscall(SYS_pidfd_send_signal, handle_, signal, nullptr, 0);
}

bool child_process_t::ReadMore() {
    pollfd waiting{output_, POLLIN, 0};
    if (::poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) <= 0) {
        throw std::runtime_error("the child says nothing: " + Errors());
    }
    std::array<char, 4096> part{};
    const ssize_t got = ::read(output_, part.data(), part.size());
    pending_.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return got > 0;
}

std::optional<std::string> child_process_t::ReadLine() {
    for (;;) {
        if (const std::size_t at = pending_.find('\n'); at != std::string::npos) {
            std::string line = pending_.substr(0, at);
            pending_.erase(0, at + 1);
            return line;
        }
        if (!ReadMore()) {
            return std::nullopt;
        }
    }
}

int child_process_t::Wait() {
    while (!status_ && ReadMore()) {
    }
    const std::optional<int> status = WaitFor(static_cast<int>(std::chrono::milliseconds(kPatience).count()));
    if (!status) {
        throw std::runtime_error("the child does not end: " + Errors());
    }
    return *status;
}

std::optional<int> child_process_t::WaitFor(int milliseconds) {
    pollfd ended{handle_, POLLIN, 0};
    if (!status_ && ::poll(&ended, 1, milliseconds) > 0) {
        int status = 0;
        ::waitpid(child_, &status, 0);
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return status_;
}

std::string child_process_t::Errors() const {
    struct stat status {};
    std::string text(::fstat(errors_, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0, '\0');
    const ssize_t got = ::pread(errors_, text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return text;
}

}  // namespace tests
