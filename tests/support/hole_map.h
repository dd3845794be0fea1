#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "mirrowen/posix/unique_fd.h"

namespace tests {

/// A piece of a file, [begin, end).
struct extent_t {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    friend bool operator==(const extent_t&, const extent_t&) = default;
    friend std::ostream& operator<<(std::ostream& out, const extent_t& extent) {
        return out << '[' << extent.begin << ", " << extent.end << ')';
    }
};

/// What is data in the file at `path`, as its file system tells it; throws `std::runtime_error`.
inline std::vector<extent_t> DataExtentsOf(const std::string& path) {
    const posix::unique_fd_t fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat attributes {};
    if (!fd || ::fstat(fd.get(), &attributes) < 0) {
        throw std::runtime_error("cannot examine " + path);
    }
    std::vector<extent_t> extents;
    for (off_t at = 0; at < attributes.st_size;) {
        const off_t data = ::lseek(fd.get(), at, SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break;
        }
        at = ::lseek(fd.get(), data, SEEK_HOLE);
        if (data < 0 || at < 0) {
            throw std::runtime_error("no hole map of " + path);
        }
        extents.push_back({static_cast<std::uint64_t>(data), static_cast<std::uint64_t>(at)});
    }
    return extents;
}

/// The byte that MakeSparseFile puts at `offset` of its data; never 0.
inline char SparseFileByte(std::uint64_t offset) {
    return static_cast<char>(1 + (offset * 2654435761U >> 13) % 255);
}

/// A file of `size` bytes in which only `data` was written.
inline void MakeSparseFile(const std::string& path, std::uint64_t size, const std::vector<extent_t>& data) {
    const posix::unique_fd_t fd(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    bool good = fd && ::ftruncate(fd.get(), static_cast<off_t>(size)) == 0;
    for (const extent_t& extent : data) {
        std::string bytes;
        for (std::uint64_t at = extent.begin; at < extent.end; ++at) {
            bytes += SparseFileByte(at);
        }
        good = good && ::pwrite(fd.get(), bytes.data(), bytes.size(), static_cast<off_t>(extent.begin)) ==
                           static_cast<ssize_t>(bytes.size());
    }
    if (!good) {
        throw std::runtime_error("cannot make " + path);
    }
}

/// Bytes of storage that the file takes.
inline std::uint64_t RoomOf(const std::string& path) {
    struct stat attributes {};
    if (::stat(path.c_str(), &attributes) < 0) {
        throw std::runtime_error("cannot examine " + path);
    }
    return static_cast<std::uint64_t>(attributes.st_blocks) * 512;
}

}  // namespace tests
