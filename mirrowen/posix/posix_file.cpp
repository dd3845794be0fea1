#include "mirrowen/posix/posix_file.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace posix {

namespace {

constexpr auto kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());

// Repeats `call` while a signal interrupts it.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

unique_fd_t open_file(const std::string& path, int flags, std::string_view failure) {
    const int fd = uninterrupted([&] { return sys().open(path.c_str(), flags | O_CLOEXEC, 0600); });
    if (fd < 0) {
        throw errno_exc_t(failure, path, errno);
    }
    return unique_fd_t(fd);
}

struct stat stat_of(const unique_fd_t& fd, const std::string& path) {
    struct stat info = {};
    if (uninterrupted([&] { return sys().fstat(fd.get(), &info); }) < 0) {
        throw errno_exc_t("Failed to examine file [%1]", path, errno);
    }
    return info;
}

void lock_file(const unique_fd_t& fd, const std::string& path, int operation) {
    if (uninterrupted([&] { return sys().flock(fd.get(), operation | LOCK_NB); }) < 0) {
        throw errno_exc_t("Failed to lock file [%1]", path, errno);
    }
}

// The position after the seek.
std::uint64_t seek(const unique_fd_t& fd, const std::string& path, std::uint64_t offset, int whence) {
    if (offset > kMaxOffset) {
        throw errno_exc_t("Failed to seek in file [%1]", path, EOVERFLOW);
    }
    const off_t position = uninterrupted([&] { return sys().lseek(fd.get(), static_cast<off_t>(offset), whence); });
    if (position < 0) {
        throw errno_exc_t("Failed to seek in file [%1]", path, errno);
    }
    return static_cast<std::uint64_t>(position);
}

}  // namespace

std::shared_ptr<posix_file_t> posix_file_t::CreateNew(const std::string& path, std::uint64_t length) {
    unique_fd_t fd = open_file(path, O_RDWR | O_CREAT | O_EXCL, "Failed to create file [%1]");
    auto file = std::make_shared<posix_file_t>(path, std::move(fd));
    file->dirty_ = true;
    if (length != 0) {
        try {
            file->SetSize(length);
        } catch (...) {
            sys().unlinkat(AT_FDCWD, path.c_str(), 0);
            throw;
        }
    }
    return file;
}

std::shared_ptr<posix_file_t> posix_file_t::Open4Write(const std::string& path, bool followLink) {
    const int flags = O_RDWR | (followLink ? 0 : O_NOFOLLOW);
    return std::make_shared<posix_file_t>(path, open_file(path, flags, "Failed to open file [%1] for writing"));
}

std::shared_ptr<posix_file_t> posix_file_t::OpenOrCreate4Write(const std::string& path, bool lock,
                                                               std::uint64_t length) {
    unique_fd_t fd = open_file(path, O_RDWR | O_CREAT, "Failed to open file [%1] for writing");
    if (lock) {
        lock_file(fd, path, LOCK_EX);
    }
    auto file = std::make_shared<posix_file_t>(path, std::move(fd));
    file->SetSize(0);
    if (length != 0) {
        file->SetSize(length);
    }
    return file;
}

std::shared_ptr<posix_file_t> posix_file_t::Open4Read(const std::string& path, bool lock) {
    unique_fd_t fd = open_file(path, O_RDONLY, "Failed to open file [%1] for reading");
    if (S_ISDIR(stat_of(fd, path).st_mode)) {
        throw errno_exc_t("Failed to open file [%1] for reading", path, EISDIR);
    }
    if (lock) {
        lock_file(fd, path, LOCK_SH);
    }
    return std::make_shared<posix_file_t>(path, std::move(fd));
}

posix_file_t::posix_file_t(std::string path, unique_fd_t fd) : path_(std::move(path)), fd_(std::move(fd)) {}

posix_file_t::~posix_file_t() = default;

std::size_t posix_file_t::Read(void* buffer, std::size_t count) {
    auto* const begin = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < count) {
        const std::size_t piece = std::min(count - done, kMaxIoCount);
        const ssize_t got = uninterrupted([&] { return sys().read(fd_.get(), begin + done, piece); });
        if (got < 0) {
            throw errno_exc_t("Failed to read from file [%1]", path_, errno);
        }
        if (got == 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    return done;
}

void posix_file_t::Write(const void* buffer, std::size_t count) {
    const auto* const begin = static_cast<const char*>(buffer);
    std::size_t done = 0;
    while (done < count) {
        dirty_ = true;
        const std::size_t piece = std::min(count - done, kMaxIoCount);
        const ssize_t put = uninterrupted([&] { return sys().write(fd_.get(), begin + done, piece); });
        if (put <= 0) {  // a file that takes nothing and names no reason would be asked for ever
            throw errno_exc_t("Failed to write to file [%1]", path_, put < 0 ? errno : EIO);
        }
        done += static_cast<std::size_t>(put);
    }
}

void posix_file_t::SeekFromBegin(std::uint64_t offset) {
    seek(fd_, path_, offset, SEEK_SET);
}

void posix_file_t::SeekFromCurr(std::uint64_t count) {
    seek(fd_, path_, count, SEEK_CUR);
}

std::uint64_t posix_file_t::GetPosition() const {
    return seek(fd_, path_, 0, SEEK_CUR);
}

std::uint64_t posix_file_t::GetSize() const {
    return static_cast<std::uint64_t>(stat_of(fd_, path_).st_size);
}

void posix_file_t::SetSize(std::uint64_t length) {
    static constexpr std::string_view failure = "Failed to set size of file [%1]";
    if (length > kMaxOffset) {
        throw errno_exc_t(failure, path_, EFBIG);
    }
    dirty_ = true;
    if (uninterrupted([&] { return sys().ftruncate(fd_.get(), static_cast<off_t>(length)); }) < 0) {
        throw errno_exc_t(failure, path_, errno);
    }
}

void posix_file_t::Flush() {
    if (flushError_ == 0 && !dirty_) {
        return;
    }
    if (flushError_ == 0 && uninterrupted([&] { return sys().fsync(fd_.get()); }) < 0) {
        flushError_ = errno;
    }
    if (flushError_ != 0) {
        throw errno_exc_t("Failed to flush file [%1]", path_, flushError_);
    }
    dirty_ = false;
}

}  // namespace posix
