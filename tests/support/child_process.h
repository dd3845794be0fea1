#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tests {

/// A command in a child process whose output is read line by line. It is killed at the end, and when the test's process
/// dies. One thread; what goes wrong throws `std::runtime_error`.
class child_process_t {
  public:
    /// `words`: the path of the program and its arguments; `environment`: "NAME=value", besides what this process has.
    explicit child_process_t(const std::vector<std::string>& words, const std::vector<std::string>& environment = {});
    ~child_process_t();
    child_process_t(const child_process_t&) = delete;
    child_process_t& operator=(const child_process_t&) = delete;

    /// From any thread. Nothing when it has ended already.
    void Kill(int signal) const noexcept;
    /// The next line of its output without the end of the line; nothing when it has closed its output.
    std::optional<std::string> ReadLine();
    /// Waits until it has ended, and reads on meanwhile. The exit status, or the signal that ended it, negative.
    int Wait();
    /// Waits at most so long; nothing when it still runs.
    std::optional<int> WaitFor(int milliseconds);

    /// What it has written to its error output until now.
    std::string Errors() const;

  private:
    bool ReadMore();

    pid_t child_ = -1;
    int handle_ = -1;  ///< of the process: does not lead to another one once this has ended
    int output_ = -1;
    int errors_ = -1;
    std::string pending_;
    std::optional<int> status_;
};

}  // namespace tests
