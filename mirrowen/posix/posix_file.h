#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "mirrowen/export.h"
#include "mirrowen/posix/unique_fd.h"

namespace posix {

/// An open file of the host: owns the descriptor, knows its path, loops over interrupted and partial system calls.
///
/// One thread at a time. Every failure is a `posix::errno_exc_t` that names the path. All descriptors are
/// close-on-exec.
class MIRROWEN_API posix_file_t {
  public:
    /// Creates the file, which must not exist (not even as a dangling link), with mode 0600 and the given length in
    /// bytes; the content reads as zeroes. When setting the length fails the new file is removed again.
    /// Throws errno_exc_t "Failed to create file [%1]", "Failed to set size of file [%1]".
    static std::shared_ptr<posix_file_t> CreateNew(const std::string& path, std::uint64_t length);

    /// Opens an existing file for reading and writing; its content stays. Without `followLink` a link at `path` itself
    /// is refused with ELOOP; links on the way to it are followed either way. Throws "Failed to open file [%1] for
    /// writing".
    static std::shared_ptr<posix_file_t> Open4Write(const std::string& path, bool followLink = true);

    /// Opens a file for reading and writing, with mode 0600 when it is new. What was in it is gone: it has `length`
    /// bytes, all zero. With `lock` it is locked for this object alone, before anything in it changes. Throws "Failed
    /// to open file [%1] for writing", "Failed to set size of file [%1]" and, when somebody else has a lock, "Failed to
    /// lock file [%1]".
    static std::shared_ptr<posix_file_t> OpenOrCreate4Write(const std::string& path, bool lock, std::uint64_t length);

    /// Opens an existing file for reading, with `lock` locked against those that lock it for writing. Throws "Failed to
    /// open file [%1] for reading"; a directory is refused with EISDIR. A lock that cannot be had throws "Failed to
    /// lock file [%1]".
    ///
    /// All locks are advisory (flock), are not waited for and end with the object.
    static std::shared_ptr<posix_file_t> Open4Read(const std::string& path, bool lock = false);

    posix_file_t(std::string path, unique_fd_t fd);
    posix_file_t(const posix_file_t&) = delete;
    posix_file_t& operator=(const posix_file_t&) = delete;
    /// Closes the descriptor; nothing is flushed.
    ~posix_file_t();

    /// Reads up to `count` bytes at the position and advances it; fewer only at the end of the file, 0 at its end.
    /// Counts above 2147483647 are read in several calls.
    std::size_t Read(void* buffer, std::size_t count);

    /// Writes all `count` bytes at the position and advances it. One system call takes at most 2147483647 bytes.
    void Write(const void* buffer, std::size_t count);

    void SeekFromBegin(std::uint64_t offset);
    void SeekFromCurr(std::uint64_t count);

    /// The position, in bytes from the start.
    std::uint64_t GetPosition() const;

    std::uint64_t GetSize() const;
    /// Truncates or extends (with zeroes) to exactly `length`; the position stays.
    void SetSize(std::uint64_t length);

    /// Makes content and size durable (fsync). Does nothing when nothing was written or resized since the last success.
    /// A failure is remembered: every later Flush throws the same error again without a system call, because after a
    /// failed fsync the kernel may have dropped the data, and the file has to be written anew.
    void Flush();

    const std::string& GetPath() const noexcept { return path_; }
    /// The descriptor, still owned by this object.
    int GetDescriptor() const noexcept { return fd_.get(); }

  private:
    std::string path_;
    unique_fd_t fd_;
    bool dirty_ = false;
    int flushError_ = 0;
};

/// The most bytes that one read or write system call is given.
inline constexpr std::size_t kMaxIoCount = 2147483647;

}  // namespace posix
