#include "tests/support/tree_compare.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

namespace tests {

namespace {

constexpr std::size_t kPart = 1U << 20;

[[noreturn]] void Fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), "compare trees: " + what);
}

class held_fd_t {
  public:
    held_fd_t(int dir, const std::string& name, int flags) : fd_(::openat(dir, name.c_str(), flags | O_CLOEXEC)) {
        if (fd_ < 0) {
            Fail(name);
        }
    }
    ~held_fd_t() { ::close(fd_); }
    held_fd_t(const held_fd_t&) = delete;
    held_fd_t& operator=(const held_fd_t&) = delete;
    int Get() const { return fd_; }

  private:
    int fd_;
};

std::string Escaped(std::string_view bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes.substr(0, 300)) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x20 || value >= 0x7f) {
            text += {'\\', 'x', digits[value >> 4], digits[value & 15]};
        } else {
            text += byte;
        }
    }
    return bytes.size() > 300 ? text + "..." : text;
}

/// An object by its directory and name.
struct place_t {
    int dir;
    std::string name;

    struct stat Stat() const {
        struct stat found {};
        if (::fstatat(dir, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
            Fail(name);
        }
        return found;
    }

    std::string Target() const {
        std::string target(4096, '\0');
        const ssize_t length = ::readlinkat(dir, name.c_str(), target.data(), target.size());
        if (length < 0) {
            Fail(name);
        }
        target.resize(static_cast<std::size_t>(length));
        return target;
    }

    /// For calls that take no directory. Attributes are asked for without opening the object: nobody may be allowed to.
    std::string ProcPath() const {
        return dir == AT_FDCWD ? name : "/proc/self/fd/" + std::to_string(dir) + "/" + name;
    }
};

std::set<std::string> NamesIn(int dir) {
    const int copy = ::fcntl(dir, F_DUPFD_CLOEXEC, 0);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(copy), &::closedir);
    if (stream == nullptr) {
        Fail("list");
    }
    std::set<std::string> names;
    while (const dirent* const entry = ::readdir(stream.get())) {
        if (std::string_view(entry->d_name) != "." && std::string_view(entry->d_name) != "..") {
            names.insert(entry->d_name);
        }
    }
    return names;
}

std::map<std::string, std::string> AttributesOf(const place_t& place) {
    const std::string path = place.ProcPath();
    std::string list(1U << 16, '\0');
    const ssize_t length = ::llistxattr(path.c_str(), list.data(), list.size());
    if (length < 0 && errno != ENOTSUP) {
        Fail(path);
    }
    list.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    std::map<std::string, std::string> attributes;
    for (std::size_t at = 0; at < list.size(); at += std::strlen(&list[at]) + 1) {
        std::string value(1U << 16, '\0');
        const ssize_t size = ::lgetxattr(path.c_str(), &list[at], value.data(), value.size());
        if (size < 0) {
            Fail(path + ": " + &list[at]);
        }
        value.resize(static_cast<std::size_t>(size));
        attributes.emplace(&list[at], std::move(value));
    }
    return attributes;
}

using extents_t = std::vector<std::pair<off_t, off_t>>;

extents_t DataOf(int fd, off_t size) {
    extents_t data;
    for (off_t at = 0; at < size;) {
        const off_t begin = ::lseek(fd, at, SEEK_DATA);
        if (begin < 0 && errno == ENXIO) {
            break;
        }
        const off_t end = ::lseek(fd, begin, SEEK_HOLE);
        if (begin < 0 || end < 0) {
            Fail("data and holes");
        }
        data.emplace_back(begin, std::min(end, size));
        at = end;
    }
    return data;
}

std::string PartOf(int fd, off_t from, std::size_t length) {
    std::string bytes(length, '\0');
    std::size_t got = 0;
    while (got < length) {
        const ssize_t count = ::pread(fd, &bytes[got], length - got, from + static_cast<off_t>(got));
        if (count < 0) {
            Fail("read");
        }
        if (count == 0) {
            break;
        }
        got += static_cast<std::size_t>(count);
    }
    bytes.resize(got);
    return bytes;
}

bool IsSamePart(int first, int second, const std::pair<off_t, off_t>& extent) {
    for (off_t at = extent.first; at < extent.second;) {
        const auto length = static_cast<std::size_t>(std::min<off_t>(extent.second - at, kPart));
        if (PartOf(first, at, length) != PartOf(second, at, length)) {
            return false;
        }
        at += static_cast<off_t>(length);
    }
    return true;
}

std::string Shown(const extents_t& extents) {
    std::string text;
    for (const auto& [begin, end] : extents) {
        text += " " + std::to_string(begin) + "-" + std::to_string(end);
    }
    return text.empty() ? " none" : text;
}

std::string Shown(const timespec& time) {
    return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
}

class tree_comparison_t {
  public:
    explicit tree_comparison_t(const tree_compare_t& what) : what_(what) {}

    void Compare(const std::string& path, const place_t& first, const place_t& second);
    std::vector<std::string> Take() { return std::move(differences_); }

  private:
    using inode_t = std::pair<dev_t, ino_t>;

    void CompareAttributes(const std::string& path, const place_t& first, const place_t& second);
    void CompareContents(const std::string& path, const place_t& first, const place_t& second, off_t size);
    void CompareDirectories(const std::string& path, const place_t& first, const place_t& second);
    void CompareLinks(const std::string& path, const struct stat& first, const struct stat& second);

    void Add(const std::string& path, const std::string& text) {
        differences_.push_back(Escaped(path.empty() ? "." : path) + ": " + text);
    }
    template <class Value>
    void CompareValue(const std::string& path, const char* what, const Value& first, const Value& second) {
        if (first != second) {
            Add(path, std::string(what) + " " + std::to_string(first) + " against " + std::to_string(second));
        }
    }

    tree_compare_t what_;
    std::map<inode_t, std::string> firstNames_, secondNames_;
    std::vector<std::string> differences_;
};

void tree_comparison_t::Compare(const std::string& path, const place_t& first, const place_t& second) {
    const struct stat left = first.Stat();
    const struct stat right = second.Stat();
    if ((left.st_mode & S_IFMT) != (right.st_mode & S_IFMT)) {
        return CompareValue(path, "type", left.st_mode & S_IFMT, right.st_mode & S_IFMT);
    }
    CompareValue(path, "mode", left.st_mode & 07777, right.st_mode & 07777);
    if (what_.owners) {
        CompareValue(path, "user", left.st_uid, right.st_uid);
        CompareValue(path, "group", left.st_gid, right.st_gid);
    }
    if (Shown(left.st_mtim) != Shown(right.st_mtim)) {
        Add(path, "time " + Shown(left.st_mtim) + " against " + Shown(right.st_mtim));
    }
    CompareAttributes(path, first, second);
    if (what_.hardLinks && !S_ISDIR(left.st_mode)) {
        CompareLinks(path, left, right);
    }
    if (S_ISLNK(left.st_mode) && first.Target() != second.Target()) {
        Add(path, "target [" + Escaped(first.Target()) + "] against [" + Escaped(second.Target()) + "]");
    } else if (S_ISDIR(left.st_mode)) {
        CompareDirectories(path, first, second);
    } else if (S_ISREG(left.st_mode) && left.st_size != right.st_size) {
        CompareValue(path, "size", left.st_size, right.st_size);
    } else if (S_ISREG(left.st_mode)) {
        CompareContents(path, first, second, left.st_size);
    }
}

void tree_comparison_t::CompareAttributes(const std::string& path, const place_t& first, const place_t& second) {
    const std::map<std::string, std::string> left = AttributesOf(first);
    const std::map<std::string, std::string> right = AttributesOf(second);
    std::set<std::string> names;
    for (const auto* const side : {&left, &right}) {
        for (const auto& attribute : *side) {
            names.insert(attribute.first);
        }
    }
    for (const std::string& name : names) {
        const bool isIgnored = std::any_of(what_.ignoredAttributes.begin(), what_.ignoredAttributes.end(),
                                           [&](const std::string& start) { return name.rfind(start, 0) == 0; });
        if (isIgnored) {
            continue;
        }
        if (left.count(name) == 0 || right.count(name) == 0) {
            Add(path,
                "attribute [" + Escaped(name) + "] is missing in the " + (left.count(name) == 0 ? "first" : "second"));
        } else if (left.at(name) != right.at(name)) {
            Add(path, "attribute [" + Escaped(name) + "] differs");
        }
    }
}

void tree_comparison_t::CompareContents(const std::string& path, const place_t& first, const place_t& second,
                                        off_t size) {
    const held_fd_t left(first.dir, first.name, O_RDONLY | O_NOFOLLOW);
    const held_fd_t right(second.dir, second.name, O_RDONLY | O_NOFOLLOW);
    const extents_t leftData = DataOf(left.Get(), size);
    const extents_t rightData = DataOf(right.Get(), size);
    if (what_.holes && leftData != rightData) {
        Add(path, "data at" + Shown(leftData) + " against" + Shown(rightData));
    }
    for (const extents_t& extents : {leftData, rightData}) {
        for (const auto& extent : extents) {
            if (!IsSamePart(left.Get(), right.Get(), extent)) {
                return Add(path, "content differs in" + Shown({extent}));
            }
        }
    }
}

void tree_comparison_t::CompareDirectories(const std::string& path, const place_t& first, const place_t& second) {
    const held_fd_t left(first.dir, first.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    const held_fd_t right(second.dir, second.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    std::set<std::string> names = NamesIn(left.Get());
    const std::set<std::string> rightNames = NamesIn(right.Get());
    const std::string start = path.empty() ? path : path + "/";
    for (const std::string& name : rightNames) {
        if (names.count(name) == 0) {
            Add(start + name, "missing in the first");
        }
    }
    for (const std::string& name : names) {
        if (rightNames.count(name) == 0) {
            Add(start + name, "missing in the second");
        } else {
            Compare(start + name, {left.Get(), name}, {right.Get(), name});
        }
    }
}

// The first name under which a file was met stands for it; both sides are walked in the same order.
void tree_comparison_t::CompareLinks(const std::string& path, const struct stat& first, const struct stat& second) {
    const std::string left = firstNames_.try_emplace({first.st_dev, first.st_ino}, path).first->second;
    const std::string right = secondNames_.try_emplace({second.st_dev, second.st_ino}, path).first->second;
    if (left != right) {
        Add(path, "is the same file as [" + Escaped(left) + "] against [" + Escaped(right) + "]");
    }
}

}  // namespace

std::vector<std::string> CompareTrees(const std::string& first, const std::string& second, const tree_compare_t& what) {
    tree_comparison_t comparison(what);
    comparison.Compare("", {AT_FDCWD, first}, {AT_FDCWD, second});
    return comparison.Take();
}

}  // namespace tests
