#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tests {

struct serve_child_options_t {
    std::vector<std::string> arguments;  ///< besides where to listen and what to serve
    bool withoutOverride = false;        ///< permissions bind the child even when it runs as root
    bool asNobody = false;               ///< the child is an ordinary user (65534); only root can ask for it
    std::uint64_t maxFileSize = 0;       ///< no file of the child grows beyond it; 0: no limit
    std::uint64_t maxDescriptors = 0;    ///< 0: what this process has
};

/// A child process that runs "tarn serve" for one directory on a free port of the loopback interface. It is killed at
/// the end, and when the test's process dies. One thread. What goes wrong throws `std::runtime_error`.
class serve_child_t {
  public:
    /// Returns when the child listens.
    serve_child_t(const std::string& program, const std::string& root, const serve_child_options_t& options = {});
    ~serve_child_t();
    serve_child_t(const serve_child_t&) = delete;
    serve_child_t& operator=(const serve_child_t&) = delete;

    std::uint16_t Port() const noexcept { return port_; }

    /// The next line about a session that has ended, without the peer and the duration: "ended" or "failed: ...".
    std::string WaitSession();
    /// What the child has written to its error output until now.
    std::string Errors() const;

    std::size_t Descriptors() const;
    std::size_t Threads() const;
    /// The most memory that the child has had at once, in bytes.
    std::size_t PeakMemory() const;

    /// Waits until there are no more descriptors and threads than right after the start; false when that never comes.
    bool IsBackAtStart() const;

  private:
    std::string ReadLine();
    std::string StatusOf(const std::string& field) const;
    std::string Proc(const std::string& name) const { return "/proc/" + std::to_string(child_) + "/" + name; }

    pid_t child_ = -1;
    int output_ = -1;
    int errors_ = -1;
    std::string pending_;
    std::uint16_t port_ = 0;
    std::size_t descriptors_ = 0;
    std::size_t threads_ = 0;
};

}  // namespace tests
