#include "tests/support/serve_child.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/support/raw_peer.h"

namespace tests {

namespace {

bool Limit(__rlimit_resource what, std::uint64_t value) {
    const rlimit limit{value, value};
    return value == 0 || ::setrlimit(what, &limit) == 0;
}

// What exec grants to root is cut by the bounding set; others have none of it anyway.
bool DropOverride() {
    return ::geteuid() != 0 ||
           (::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE) == 0 && ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH) == 0);
}

bool BecomeNobody() {
    constexpr unsigned kNobody = 65534;
    return ::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0;
}

// Runs in the child between fork and exec, where only calls that are safe in signal handlers may stand.
[[noreturn]] void Become(char* const* arguments, int output, int errors, const serve_child_options_t& options) {
    // Another user does not inherit the wish to die with the parent, so it comes after.
    const bool ready = (!options.asNobody || BecomeNobody()) && ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 &&
                       ::dup2(output, STDOUT_FILENO) >= 0 && ::dup2(errors, STDERR_FILENO) >= 0 &&
                       Limit(RLIMIT_FSIZE, options.maxFileSize) && Limit(RLIMIT_NOFILE, options.maxDescriptors) &&
                       ::signal(SIGXFSZ, SIG_IGN) != SIG_ERR && (!options.withoutOverride || DropOverride());
    if (ready) {
        ::execv(arguments[0], arguments);
    }
    ::_exit(127);
}

std::vector<std::string> CommandLine(const std::string& program, const std::string& root,
                                     const serve_child_options_t& options) {
    std::vector<std::string> words = {program, "serve", "--plaintext", "--listen", "127.0.0.1:0", "--root", root};
    words.insert(words.end(), options.arguments.begin(), options.arguments.end());
    return words;
}

}  // namespace

serve_child_t::serve_child_t(const std::string& program, const std::string& root,
                             const serve_child_options_t& options) {
    std::vector<std::string> words = CommandLine(program, root, options);
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    errors_ = ::memfd_create("errors", MFD_CLOEXEC);
    if (errors_ < 0 || ::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe for the child");
    }
    output_ = ends[0];
    child_ = ::fork();
    if (child_ == 0) {
        Become(arguments.data(), ends[1], errors_, options);
    }
    ::close(ends[1]);
    constexpr std::string_view kStart = "listening on 127.0.0.1:";
    const std::string line = ReadLine();
    if (line.compare(0, kStart.size(), kStart) != 0) {
        throw std::runtime_error("the child did not start: " + line + Errors());
    }
    port_ = static_cast<std::uint16_t>(std::stoul(line.substr(kStart.size())));
    // A session that has come and gone: what the process makes once and keeps is there now.
    raw_peer_t(port_).Send("x");
    WaitSession();
    // Its thread is on its way out; a few looks later it has gone.
    threads_ = Threads();
    descriptors_ = Descriptors();
    for (int look = 0; look < 50; ++look) {
        ::poll(nullptr, 0, 1);
        threads_ = std::min(threads_, Threads());
        descriptors_ = std::min(descriptors_, Descriptors());
    }
}

serve_child_t::~serve_child_t() {
    if (child_ > 0) {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }
    ::close(output_);
    ::close(errors_);
}

std::string serve_child_t::ReadLine() {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        if (const std::size_t at = pending_.find('\n'); at != std::string::npos) {
            const std::string line = pending_.substr(0, at);
            pending_.erase(0, at + 1);
            return line;
        }
        pollfd waiting{output_, POLLIN, 0};
        if (::poll(&waiting, 1, 100) > 0) {
            std::array<char, 4096> part{};
            const ssize_t got = ::read(output_, part.data(), part.size());
            if (got <= 0) {
                throw std::runtime_error("the child has ended: " + Errors());
            }
            pending_.append(part.data(), static_cast<std::size_t>(got));
        } else if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("the child says nothing: " + Errors());
        }
    }
}

std::string serve_child_t::WaitSession() {
    std::string line = ReadLine();
    const std::size_t at = line.find(" ms ");
    if (line.compare(0, 8, "session ") != 0 || at == std::string::npos) {
        throw std::runtime_error("not about a session: " + line);
    }
    return line.substr(at + 4);
}

std::string serve_child_t::Errors() const {
    struct stat status {};
    std::string text(::fstat(errors_, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0, '\0');
    const ssize_t got = ::pread(errors_, text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return text;
}

std::size_t serve_child_t::Descriptors() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(Proc("fd")), {}));
}

std::size_t serve_child_t::Threads() const {
    return std::stoul(StatusOf("Threads:"));
}

std::size_t serve_child_t::PeakMemory() const {
    return std::stoul(StatusOf("VmHWM:")) * 1024;
}

std::string serve_child_t::StatusOf(const std::string& field) const {
    std::ifstream status(Proc("status"));
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, field.size(), field) == 0) {
            return line.substr(field.size());
        }
    }
    throw std::runtime_error("the child has no " + field);
}

bool serve_child_t::IsBackAtStart() const {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (Descriptors() > descriptors_ || Threads() > threads_) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        ::poll(nullptr, 0, 1);
    }
    return true;
}

}  // namespace tests
