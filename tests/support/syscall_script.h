#pragma once

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

#include "mirrowen/posix/syscalls.h"

namespace tests {

/// Stands in front of the system calls of files for the life of this object: counts them, keeps what writes and seeks
/// were asked for, and makes the calls fail that a test names. One at a time, one thread.
class syscall_script_t {
  public:
    /// What happens to the calls of one kind: calls `from` to `to` (counted from 1) fail with `error`.
    struct rule_t {
        int count = 0;
        int from = 0;
        int to = 0;
        int error = 0;

        bool Fails() {
            ++count;
            const bool fails = count >= from && count <= to;
            if (fails) {
                errno = error;
            }
            return fails;
        }
        /// From now on, `skip` calls pass and `times` fail.
        void Fail(int withError, int skip = 0, int times = 1000000) {
            from = count + skip + 1;
            to = from + times - 1;
            error = withError;
        }
        /// The number of calls since the last question.
        int TakeCount() {
            const int taken = count;
            count = 0;
            return taken;
        }
    };

    syscall_script_t() : scope_(Table()) { Current() = this; }
    ~syscall_script_t() { Current() = nullptr; }
    syscall_script_t(const syscall_script_t&) = delete;
    syscall_script_t& operator=(const syscall_script_t&) = delete;

    rule_t open, read, write, lseek, fsync, ftruncate, fstat;
    bool swallowWrites = false;            ///< writes succeed and reach no file
    std::vector<std::size_t> writeCounts;  ///< bytes asked of each write
    std::vector<std::string> order;        ///< names of the calls, in order

  private:
    static syscall_script_t*& Current() {
        static syscall_script_t* current = nullptr;
        return current;
    }

    static bool Fails(rule_t syscall_script_t::*rule, const char* name) {
        Current()->order.emplace_back(name);
        return (Current()->*rule).Fails();
    }

    static const posix::syscalls_t& Table() {
        static const posix::syscalls_t table = MakeTable();
        return table;
    }

    static posix::syscalls_t MakeTable() {
        posix::syscalls_t table = posix::real_syscalls();
        table.open = [](const char* path, int flags, mode_t mode) {
            return Fails(&syscall_script_t::open, "open") ? -1 : posix::real_syscalls().open(path, flags, mode);
        };
        table.read = [](int fd, void* buffer, std::size_t count) -> ssize_t {
            return Fails(&syscall_script_t::read, "read") ? -1 : posix::real_syscalls().read(fd, buffer, count);
        };
        table.write = [](int fd, const void* buffer, std::size_t count) -> ssize_t {
            Current()->writeCounts.push_back(count);
            if (Fails(&syscall_script_t::write, "write")) {
                return -1;
            }
            return Current()->swallowWrites ? static_cast<ssize_t>(count)
                                            : posix::real_syscalls().write(fd, buffer, count);
        };
        table.lseek = [](int fd, off_t offset, int whence) -> off_t {
            return Fails(&syscall_script_t::lseek, "lseek") ? -1 : posix::real_syscalls().lseek(fd, offset, whence);
        };
        table.fsync = [](int fd) {
            return Fails(&syscall_script_t::fsync, "fsync") ? -1 : posix::real_syscalls().fsync(fd);
        };
        table.ftruncate = [](int fd, off_t length) {
            return Fails(&syscall_script_t::ftruncate, "ftruncate") ? -1 : posix::real_syscalls().ftruncate(fd, length);
        };
        table.fstat = [](int fd, struct stat* out) {
            return Fails(&syscall_script_t::fstat, "fstat") ? -1 : posix::real_syscalls().fstat(fd, out);
        };
        return table;
    }

    posix::scoped_syscalls_t scope_;
};

}  // namespace tests
