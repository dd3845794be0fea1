#include "tests/support/awkward_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <random>
#include <string_view>
#include <system_error>

namespace tests {

namespace {

constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kMiB = 1024 * kKiB;
constexpr std::uint64_t kGiB = 1024 * kMiB;

void Check(bool good, const std::string& what) {
    if (!good) {
        throw std::system_error(errno, std::generic_category(), "awkward tree: " + what);
    }
}

/// Bytes that no compression shortens and no two files share.
std::string Noise(std::uint64_t size, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    std::string bytes(size + sizeof(std::uint64_t), '\0');
    for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
        const std::uint64_t value = random();
        std::memcpy(&bytes[at], &value, sizeof value);
    }
    bytes.resize(size);
    return bytes;
}

std::string Octal(mode_t mode) {
    std::array<char, 8> digits{};
    return {digits.data(), std::to_chars(digits.begin(), digits.end(), mode, 8).ptr};
}

/// An open file of a path, to be written in pieces.
class awkward_file_t {
  public:
    explicit awkward_file_t(const std::string& path)
        : path_(path), fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
        Check(fd_ >= 0, path);
    }
    ~awkward_file_t() { ::close(fd_); }
    awkward_file_t(const awkward_file_t&) = delete;
    awkward_file_t& operator=(const awkward_file_t&) = delete;

    void Write(std::uint64_t offset, std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t written = ::pwrite(fd_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
            Check(written > 0, path_);
            offset += static_cast<std::uint64_t>(written);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }
    void SetSize(std::uint64_t size) const { Check(::ftruncate(fd_, static_cast<off_t>(size)) == 0, path_); }

  private:
    std::string path_;
    int fd_;
};

class awkward_maker_t {
  public:
    awkward_maker_t(std::string top, const awkward_parts_t& parts)
        : top_(std::move(top)), parts_(parts), isRoot_(::geteuid() == 0) {}

    std::vector<std::string> Make() {
        Check(::mkdir(top_.c_str(), 0700) == 0, top_);
        MakeNames();
        MakeDeep();
        MakeSizes();
        MakeTimes();
        MakeLinks();
        MakeModes();
        MakeShutDirectories();
        MakeAttributes();
        MakeOwners();
        if (parts_.allModes) {
            MakeAllModes();
        }
        if (parts_.hardLinks) {
            MakeHardLinks();
        }
        if (parts_.holes) {
            MakeHoles();
        }
        if (parts_.hugeFile) {
            MakeHugeFile();
        }
        SetTime("", {1'300'000'000, 250'000'001});
        return std::move(leftOut_);
    }

  private:
    void MakeNames();
    void MakeDeep();
    void MakeSizes();
    void MakeTimes();
    void MakeLinks();
    void MakeModes();
    void MakeShutDirectories();
    void MakeAttributes();
    void MakeLists();
    void MakeOwners();
    void MakeAllModes();
    void MakeHardLinks();
    void MakeHoles();
    void MakeHugeFile();

    std::string At(const std::string& name) const { return name.empty() ? top_ : top_ + "/" + name; }
    void LeaveOut(const std::string& what, const std::string& why) { leftOut_.push_back(what + ": " + why); }
    void Directory(const std::string& name) const { Check(::mkdir(At(name).c_str(), 0700) == 0, name); }
    void File(const std::string& name, std::string_view content) const { awkward_file_t(At(name)).Write(0, content); }
    void Link(const std::string& name, const std::string& target) const {
        Check(::symlink(target.c_str(), At(name).c_str()) == 0, name);
    }
    void HardLink(const std::string& first, const std::string& name) const {
        Check(::link(At(first).c_str(), At(name).c_str()) == 0, name);
    }
    void SetMode(const std::string& name, mode_t mode) const {
        Check(::chmod(At(name).c_str(), mode) == 0, name);
        struct stat found {};
        Check(::stat(At(name).c_str(), &found) == 0 && (found.st_mode & 07777U) == mode, name + ": mode not kept");
    }
    void SetTime(const std::string& name, const timespec& time) const {
        const std::array<timespec, 2> times{time, time};
        Check(::utimensat(AT_FDCWD, At(name).c_str(), times.data(), AT_SYMLINK_NOFOLLOW) == 0, name);
    }
    void SetAttribute(const std::string& name, const std::string& key, std::string_view value) const {
        Check(::setxattr(At(name).c_str(), key.c_str(), value.data(), value.size(), 0) == 0, name + ": " + key);
    }
    void SetOwner(const std::string& name, uid_t user, gid_t group) const {
        Check(::lchown(At(name).c_str(), user, group) == 0, name);
    }

    std::string top_;
    awkward_parts_t parts_;
    bool isRoot_;
    std::vector<std::string> leftOut_;
};

void awkward_maker_t::MakeNames() {
    Directory("names");
    const std::vector<std::string> names = {"new\nline",
                                            "\n",
                                            "quote'and\"quote",
                                            " leading and trailing ",
                                            "   ",
                                            "-rf",
                                            "--",
                                            "*",
                                            "?[a-z]",
                                            "back\\slash",
                                            "\\n",
                                            "tab\tand\rreturn",
                                            "bell\a\x01\x7f",
                                            "not utf-8 \xff\xfe",
                                            "\x80",
                                            "cut off \xe2\x82",
                                            "overlong \xc0\xaf",
                                            "f\xc3\xbcr \xe2\x82\xac \xf0\x9f\x98\x80",
                                            "combined u\xcc\x88",
                                            "...",
                                            ".hidden",
                                            "..name",
                                            "name.",
                                            "a:b",
                                            "MemFs:",
                                            "C:",
                                            "%1 %s %n",
                                            "[%1]",
                                            "$HOME",
                                            "`id`",
                                            ";",
                                            "#",
                                            "~",
                                            "nul",
                                            "case",
                                            "CASE"};
    for (const std::string& name : names) {
        File("names/" + name, name);
    }
    File("names/" + std::string(255, 'n'), "255 bytes");
    File("names/" + std::string(255, '\xfe'), "255 bytes that are no UTF-8");
    Directory("names/" + std::string(254, 'd') + "\n");
    File("names/" + std::string(254, 'd') + "\n/" + std::string(255, '\''), "both");
    // Reserved at the top of what an agent serves, ordinary below it.
    Directory("names/.tarn-staging");
    File("names/.tarn-staging/lock", "no lock");
}

void awkward_maker_t::MakeDeep() {
    Directory("deep");
    std::string path = "deep";
    for (int level = 0; level < 200; ++level) {
        path += "/d";
        Directory(path);
    }
    File(path + "/file", "200 levels down");
    // As long as a name may be where it arrives below "tree/", with some room for another prefix.
    path = "deep";
    for (int level = 0; level < 15; ++level) {
        path += "/" + std::string(255, static_cast<char>('a' + level));
        Directory(path);
    }
    File(path + "/" + std::string(80, 'f'), "long way");
}

void awkward_maker_t::MakeSizes() {
    Directory("sizes");
    const std::uint64_t block = parts_.blockSize;
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{4095}, std::uint64_t{4096},
                                     block - 1, block, block + 1, 2 * block, 3 * block + 17}) {
        File("sizes/" + std::to_string(size), Noise(size, size));
    }
    // Shrinks to next to nothing on the way.
    File("sizes/same byte", std::string(5 * block + 1, 'x'));
}

void awkward_maker_t::MakeTimes() {
    Directory("times");
    const std::vector<timespec> times = {{0, 0},
                                         {0, 1},
                                         {-1, 999'999'999},
                                         {-1, 0},
                                         {-14'182'940, 123'456'789},
                                         {-2'147'483'647, 1},
                                         {1, 999'999'999},
                                         {2'147'483'648, 0},
                                         {4'294'967'296, 999'999'999},
                                         {1'600'000'000, 100}};
    for (const timespec& time : times) {
        const std::string name = "times/" + std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
        File(name + " file", "x");
        SetTime(name + " file", time);
        Link(name + " link", "file");
        SetTime(name + " link", time);
        Directory(name + " directory");
        File(name + " directory/content", "put in before the time was set");
        SetTime(name + " directory", time);
    }
    SetTime("times", {-86'400, 7});
}

void awkward_maker_t::MakeLinks() {
    Directory("links");
    Link("links/itself", "itself");
    Link("links/there", "back");
    Link("links/back", "there");
    Link("links/here", ".");
    Link("links/up", "..");
    Link("links/top", "../../../../../../../../../../");
    Link("links/dangling", "no such place");
    Link("links/absolute", "/no/such/place");
    Link("links/into a directory", "../times/../sizes/1");
    Link("links/with a slash", "../sizes/");
    Link("links/new\nline", "new\nline");
    Link("links/not utf-8", "\xff\xfe");
    Link("links/like a place", "MemFs://slot");
    Link("links/long", std::string(1000, 't'));
    if (::symlink(std::string(4095, 't').c_str(), At("links/longest").c_str()) != 0) {
        Check(errno == ENAMETOOLONG, "links/longest");
        LeaveOut("links/longest", "this file system takes no link of 4,095 bytes");
    }
    Link("links/staging", "../.tarn-staging/lock");
    SetTime("links/itself", {-5, 5});
}

void awkward_maker_t::MakeModes() {
    Directory("modes");
    for (const mode_t mode :
         {0600U, 0644U, 0755U, 0777U, 0400U, 0444U, 04755U, 02755U, 06755U, 01777U, 07777U, 04000U | 0600U}) {
        const std::string name = "modes/" + Octal(mode);
        File(name, "x");
        SetMode(name, mode);
        Directory(name + " directory");
        SetMode(name + " directory", mode | 0500U);
    }
    if (!isRoot_) {
        LeaveOut("modes/none, modes/write only", "only root reads a file without the permission");
        return;
    }
    for (const auto& [name, mode] : {std::pair("modes/none", 0U), std::pair("modes/write only", 0222U)}) {
        File(name, "nobody may read this");
        SetMode(name, mode);
    }
}

void awkward_maker_t::MakeShutDirectories() {
    Directory("shut");
    for (const mode_t mode : {0555U, 0500U, 02555U, 0111U, 0U}) {
        const std::string name = "shut/" + Octal(mode);
        if (!isRoot_ && (mode & 0400U) == 0) {
            LeaveOut(name, "only root lists a directory without the permission");
            continue;
        }
        Directory(name);
        File(name + "/inside", "in a directory that may not be written");
        Link(name + "/link", "inside");
        Directory(name + "/empty");
        SetMode(name + "/empty", isRoot_ ? mode : mode | 0500U);
        SetTime(name + "/empty", {77, 7});
        SetMode(name, mode);
        SetTime(name, {88, 8});
    }
    SetMode("shut", 0555);
    SetTime("shut", {99, 9});
}

void awkward_maker_t::MakeAttributes() {
    Directory("attributes");
    File("attributes/large", "x");
    SetAttribute("attributes/large", "user.large", Noise(parts_.attributeBytes, 7));
    File("attributes/many", "x");
    for (int number = 0; number < 40; ++number) {
        SetAttribute("attributes/many", "user.number " + std::to_string(number), std::to_string(number));
    }
    File("attributes/odd", "x");
    SetAttribute("attributes/odd", "user.empty", "");
    SetAttribute("attributes/odd", "user.zeroes", std::string_view("\0a\0", 3));
    SetAttribute("attributes/odd", "user.\n\xff", "odd name");
    SetAttribute("attributes/odd", "user." + std::string(250, 'n'), "255 bytes");
    Directory("attributes/of a directory");
    SetAttribute("attributes/of a directory", "user.large", Noise(parts_.attributeBytes, 8));
    File("attributes/read-only", "x");
    SetAttribute("attributes/read-only", "user.kept", "although nobody may write");
    SetMode("attributes/read-only", 0444);
    if (isRoot_) {
        SetAttribute("attributes/odd", "trusted.kept", "for root");
        File("attributes/capable", "x");
        SetOwner("attributes/capable", 1, 1);
        SetMode("attributes/capable", 0755);
        // Version 2, effective; CAP_NET_BIND_SERVICE permitted.
        SetAttribute("attributes/capable", "security.capability",
                     std::string_view("\x01\x00\x00\x02\x00\x04\x00\x00\0\0\0\0\0\0\0\0\0\0\0\0", 20));
    } else {
        LeaveOut("trusted.* attributes, attributes/capable", "only root may set them");
    }
    MakeLists();
}

void awkward_maker_t::MakeLists() {
    // The version, then tag, permissions and id of each entry: user::rw- user:1:r-- group::r-- mask::rw- other::---
    constexpr std::string_view kList(
        "\x02\0\0\0"
        "\x01\0\x06\0\xff\xff\xff\xff"
        "\x02\0\x04\0\x01\0\0\0"
        "\x04\0\x04\0\xff\xff\xff\xff"
        "\x10\0\x06\0\xff\xff\xff\xff"
        "\x20\0\0\0\xff\xff\xff\xff",
        44);
    File("attributes/list", "x");
    SetAttribute("attributes/list", "system.posix_acl_access", kList);
    Directory("attributes/inherited");
    SetAttribute("attributes/inherited", "system.posix_acl_default", kList);
    File("attributes/inherited/with", "inherits the list");
    File("attributes/inherited/without", "has none, though its directory gives one");
    Check(::removexattr(At("attributes/inherited/without").c_str(), "system.posix_acl_access") == 0, "without");
    SetMode("attributes/inherited/without", 0640);
    Directory("attributes/inherited/directory");
    SetTime("attributes/inherited", {66, 6});
}

void awkward_maker_t::MakeOwners() {
    if (!isRoot_) {
        LeaveOut("owners", "only root gives files away");
        return;
    }
    Directory("owners");
    for (const uid_t owner : {1U, 65534U, 54321U}) {
        const std::string name = "owners/" + std::to_string(owner);
        File(name, "given away");
        SetOwner(name, owner, owner + 1);
        SetMode(name, 06711);
        Link(name + " link", "x");
        SetOwner(name + " link", owner, owner);
        Directory(name + " directory");
        File(name + " directory/inside", "x");
        SetOwner(name + " directory", owner, 0);
        SetMode(name + " directory", 0500);
    }
}

void awkward_maker_t::MakeAllModes() {
    Directory("all modes");
    for (mode_t mode = 0; mode < 010000; ++mode) {
        if (!isRoot_ && (mode & 0400U) == 0) {
            continue;
        }
        const std::string name = "all modes/" + Octal(mode);
        File(name, "");
        SetMode(name, mode);
        // Of the permissions of a directory the owner's matter most, so they go with each special bit.
        if ((mode & 077U) == 0 && (isRoot_ || (mode & 0500U) == 0500U)) {
            Directory(name + " directory");
            SetMode(name + " directory", mode);
        }
    }
    if (!isRoot_) {
        LeaveOut("all modes", "of those that the owner may not read there are none");
    }
}

void awkward_maker_t::MakeHardLinks() {
    Directory("hard links");
    Directory("hard links/below");
    const auto make = [&](const std::string& first, const std::vector<std::string>& others, std::string_view content) {
        File("hard links/" + first, content);
        for (const std::string& other : others) {
            HardLink("hard links/" + first, "hard links/" + other);
        }
    };
    make("pair", {"pair, other"}, "two names");
    make("z last", {"a first", "below/third", "below/m fourth"}, Noise(100'000, 3));
    make("empty", {"below/empty"}, "");
    make("set uid", {"below/set uid"}, "x");
    SetMode("hard links/set uid", 04755);
    make("timed", {"below/timed"}, "x");
    SetTime("hard links/timed", {-3, 3});
    make("same bytes", {}, "two names");
    SetTime("hard links/below", {55, 5});
}

void awkward_maker_t::MakeHoles() {
    Directory("holes");
    const auto make = [&](const std::string& name, std::uint64_t size, const std::vector<std::uint64_t>& dataAt) {
        const awkward_file_t file(At("holes/" + name));
        for (const std::uint64_t offset : dataAt) {
            file.Write(offset, Noise(std::min(64 * kKiB, size - offset), offset + 1));
        }
        file.SetSize(size);
    };
    make("nothing but a hole", 8 * kMiB, {});
    make("small hole", 64 * kKiB, {});
    make("at the start", 2 * kMiB, {2 * kMiB - 64 * kKiB});
    make("in the middle", 2 * kMiB, {0, 2 * kMiB - 64 * kKiB});
    make("at the end", 2 * kMiB, {0});
    make("everywhere but the middle", 3 * kMiB, {kMiB});
    make("last byte", 2 * kMiB + 1, {2 * kMiB});
    make("odd end", 2 * kMiB + 4567, {0});
    std::vector<std::uint64_t> every;
    for (std::uint64_t offset = 0; offset < 4 * kMiB; offset += 128 * kKiB) {
        every.push_back(offset);
    }
    make("like a comb", 4 * kMiB, every);
    File("holes/zeroes that are data", std::string(2 * kMiB, '\0'));
    const awkward_file_t mixed(At("holes/zeroes beside a hole"));
    mixed.Write(0, std::string(kMiB, '\0'));
    mixed.Write(3 * kMiB, std::string(kMiB, '\0'));
}

void awkward_maker_t::MakeHugeFile() {
    const awkward_file_t file(At("4 GiB and 1"));
    file.Write(0, Noise(64 * kKiB, 1));
    file.Write(2 * kGiB - 5, "across 2 GiB");
    file.Write(4 * kGiB, "!");
}

}  // namespace

std::vector<std::string> MakeAwkwardTree(const std::string& top, const awkward_parts_t& parts) {
    return awkward_maker_t(top, parts).Make();
}

}  // namespace tests
