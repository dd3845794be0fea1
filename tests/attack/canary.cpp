#include "tests/attack/canary.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <utility>

#include "mirrowen/posix/unique_fd.h"
#include "tests/support/temp_dir.h"

namespace tests {

namespace {

namespace fs = std::filesystem;

constexpr const char* kAttribute = "user.canary";

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::string NewSecret() {
    std::random_device source;
    std::string secret = "canary ";
    for (int word = 0; word < 4; ++word) {
        secret += std::to_string(source()) + ".";
    }
    return secret;
}

std::string TimeText(const timespec& time) {
    return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
}

// Reads without leaving a trace; that is for the owner and for root, which the test is.
posix::unique_fd_t OpenUnseen(const std::string& path, int flags) {
    posix::unique_fd_t fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOATIME | flags));
    if (!fd) {
        Fail("open " + path);
    }
    return fd;
}

std::string ReadUnseen(const std::string& path) {
    const posix::unique_fd_t fd = OpenUnseen(path, 0);
    std::string content;
    std::array<char, 4096> part{};
    for (ssize_t got = 0; (got = ::read(fd.get(), part.data(), part.size())) > 0;) {
        content.append(part.data(), static_cast<std::size_t>(got));
    }
    return content;
}

std::vector<std::string> ListUnseen(const std::string& path) {
    posix::unique_fd_t fd = OpenUnseen(path, O_DIRECTORY);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(fd.release()), &::closedir);
    std::vector<std::string> names;
    while (const dirent* entry = stream ? ::readdir(stream.get()) : nullptr) {
        names.emplace_back(entry->d_name);
    }
    std::erase_if(names, [](const std::string& name) { return name == "." || name == ".."; });
    return names;
}

std::string AttributesOf(const std::string& path) {
    std::array<char, 4096> names{};
    const ssize_t size = ::llistxattr(path.c_str(), names.data(), names.size());
    std::string text(names.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    std::array<char, 256> value{};
    const ssize_t length = ::lgetxattr(path.c_str(), kAttribute, value.data(), value.size());
    return text.append(value.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

std::string Describe(const std::string& path, const struct stat& found, ECanaryView view) {
    std::string text = "mode " + std::to_string(found.st_mode) + " owner " + std::to_string(found.st_uid) + ":" +
                       std::to_string(found.st_gid) + " inode " + std::to_string(found.st_ino) + " size " +
                       std::to_string(found.st_size) + " modified " + TimeText(found.st_mtim) + " read " +
                       TimeText(found.st_atim) + " attributes " + AttributesOf(path);
    if (view == ECanaryView::eEverything) {
        text += " links " + std::to_string(found.st_nlink) + " changed " + TimeText(found.st_ctim);
    }
    if (S_ISREG(found.st_mode)) {
        text += " content " + ReadUnseen(path);
    }
    return text;
}

// No link is followed and nothing's time of access moves.
void Look(const std::string& path, const std::string& shown, ECanaryView view,
          std::map<std::string, std::string>& seen) {
    struct stat found {};
    if (::lstat(path.c_str(), &found) != 0) {
        Fail("lstat " + path);
    }
    seen[shown] = Describe(path, found, view);
    if (S_ISDIR(found.st_mode)) {
        for (const std::string& name : ListUnseen(path)) {
            Look(path + "/" + name, shown + "/" + name, view, seen);
        }
    }
}

// Old enough for every later reading to be noted, also where only the first one is.
void SetOldTimes(const std::string& path) {
    const std::array<timespec, 2> times{timespec{.tv_sec = 1000000000, .tv_nsec = 1},
                                        timespec{.tv_sec = 1000000002, .tv_nsec = 3}};
    if (::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
        Fail("utimensat " + path);
    }
}

void OpenToEverybody(const std::string& path, mode_t mode) {
    if (::chmod(path.c_str(), mode) != 0) {
        Fail("chmod " + path);
    }
}

}  // namespace

canary_t::canary_t(std::string path, uid_t owner) : path_(std::move(path)), secret_(NewSecret()) {
    fs::create_directories(path_ + "/dir");
    fs::create_directory(path_ + "/empty");
    const std::vector<std::string> files = {path_ + "/secret", path_ + "/dir/inner", path_ + "/dir/file"};
    for (const std::string& file : files) {
        WriteFile(file, secret_);
        OpenToEverybody(file, 0666);
        if (::setxattr(file.c_str(), kAttribute, "v", 1, 0) != 0 && errno != ENOTSUP) {
            Fail("setxattr " + file);
        }
    }
    fs::create_symlink("secret", path_ + "/link");
    std::vector<std::string> all = files;
    all.push_back(path_ + "/link");
    for (const std::string& directory : {path_ + "/dir", path_ + "/empty", path_}) {
        OpenToEverybody(directory, 0777);
        all.push_back(directory);
    }
    for (const std::string& made : all) {
        if (owner != ::geteuid() && ::lchown(made.c_str(), owner, owner) != 0) {
            Fail("lchown " + made);
        }
        SetOldTimes(made);
    }
    Remember();
}

void canary_t::Remember() {
    whole_ = View(ECanaryView::eEverything);
    withoutLinkCount_ = View(ECanaryView::eWithoutLinkCount);
}

std::map<std::string, std::string> canary_t::View(ECanaryView view) const {
    std::map<std::string, std::string> seen;
    Look(path_, "canary", view, seen);
    return seen;
}

std::string canary_t::Damage(ECanaryView view) const {
    const auto& before = view == ECanaryView::eEverything ? whole_ : withoutLinkCount_;
    const auto now = View(view);
    std::string damage;
    for (const auto& [name, text] : before) {
        const auto found = now.find(name);
        if (found == now.end()) {
            damage += name + " is gone\n";
        } else if (found->second != text) {
            damage += name + " was: " + text + "\n" + name + " is: " + found->second + "\n";
        }
    }
    for (const auto& [name, text] : now) {
        if (before.count(name) == 0) {
            damage += name + " is new: " + text + "\n";
        }
    }
    return damage;
}

std::string canary_t::Leaks(const std::string& directory) const {
    std::string leaks;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        // A link is not even looked through: that alone would be reading of a link of the canary's own.
        if (fs::is_regular_file(entry.symlink_status()) && ReadFile(entry.path()).find(secret_) != std::string::npos) {
            leaks += entry.path().string() + "\n";
        }
    }
    return leaks;
}

bool canary_t::NoticesReading() const {
    temp_dir_t dir;
    const std::string probe = dir / "probe";
    WriteFile(probe, "x");
    SetOldTimes(probe);
    static_cast<void>(ReadFile(probe));
    struct stat found {};
    return ::lstat(probe.c_str(), &found) == 0 && found.st_atim.tv_sec != 1000000000;
}

}  // namespace tests
