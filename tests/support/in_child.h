#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

namespace tests {

/// Runs `action` in a child process and returns its text; an exception comes back as "threw: " and its text. What the
/// action does to its process (memory, rights, what it sees of the host) is gone with it. The calling process should
/// have no other thread. An expectation that fails in there is not noticed: return what is to be judged.
inline std::string RunInChild(const std::function<std::string()>& action) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("pipe failed");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        std::string text;
        try {
            text = action();
        } catch (const std::exception& error) {
            text = std::string("threw: ") + error.what();
        }
        const ssize_t written = ::write(ends[1], text.data(), text.size());
        ::_exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t count = 0; (count = ::read(ends[0], part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(count));
    }
    ::close(ends[0]);
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error("the child process failed: " + text);
    }
    return text;
}

}  // namespace tests
