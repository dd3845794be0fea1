#include "tests/reliability/kill_place.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <random>
#include <set>
#include <stdexcept>

#include "tests/support/tree_compare.h"

namespace tests {

namespace {

namespace fs = std::filesystem;

enum class ESide { eOld, eNew };

constexpr const char* kMemory = "/dev/shm";
constexpr const char* kStaging = ".tarn-staging";

void Check(bool good, const std::string& path) {
    if (!good) {
        throw std::runtime_error("cannot make " + path);
    }
}

std::string Noise(std::size_t size, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    std::string bytes;
    while (bytes.size() < size) {
        const std::uint64_t value = random();
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    bytes.resize(size);
    return bytes;
}

/// Makes one side. Every object gets a mode and a time of the side, so that a mixture is seen in them, too.
class side_maker_t {
  public:
    side_maker_t(std::string top, ESide side) : top_(std::move(top)), isNew_(side == ESide::eNew) {}

    void Make() const {
        Directory("tree");
        Directory("tree/sub");
        for (int number = 0; number < 4; ++number) {
            File("tree/replaced " + std::to_string(number), isNew_ ? 3000 : 2000);
            File("tree/sub/replaced " + std::to_string(number), isNew_ ? 10 : 70'000);
        }
        File("tree/longer", isNew_ ? 300'000 : 100);
        File("tree/shorter", isNew_ ? 0 : 200'000);
        Link("tree/link", isNew_ ? "new target" : "old target");
        Same("tree/same");
        Same("tree/sub/same");
        if (isNew_) {
            Directory("tree/added");
            Directory("tree/added/empty");
            Finish("tree/added/empty", 0750);
            File("tree/added/file", 1);
            File("tree/file", 50'000);
            Link("tree/added/link", "../file");
            Finish("tree/added", 0711);
            Sparse("tree/sparse");
            File("tree/pair", 2000);
            fs::create_hard_link(At("tree/pair"), At("tree/sub/pair of it"));
        }
        Finish("tree/sub", isNew_ ? 0755 : 0770);
        Finish("tree", isNew_ ? 0751 : 0750);
        File("large", isNew_ ? (9U << 20) + 1 : 5000);
        Directory("untouched");
        Same("untouched/file");
        Finish("untouched", 0700);
    }

  private:
    std::string At(const std::string& name) const { return top_ + "/" + name; }
    void Directory(const std::string& name) const { Check(::mkdir(At(name).c_str(), 0700) == 0, name); }
    void File(const std::string& name, std::size_t size) const {
        WriteFile(At(name), Noise(size, std::hash<std::string>()(name) + isNew_));
        const std::string side = isNew_ ? "new" : "old";
        Check(::setxattr(At(name).c_str(), "user.side", side.data(), side.size(), 0) == 0, name);
        Finish(name, isNew_ ? 0640 : 0604);
    }
    void Sparse(const std::string& name) const {
        WriteFile(At(name), Noise(65'536, 1));
        fs::resize_file(At(name), 2 << 20);
        Finish(name, 0600);
    }
    void Same(const std::string& name) const {
        WriteFile(At(name), "stays as it is");
        Check(::chmod(At(name).c_str(), 0444) == 0, name);
        SetTime(name, {77, 7});
    }
    void Link(const std::string& name, const std::string& target) const {
        fs::create_symlink(target, At(name));
        SetTime(name, {isNew_ ? 2000 : 1000, 3});
    }
    void Finish(const std::string& name, mode_t mode) const {
        Check(::chmod(At(name).c_str(), mode) == 0, name);
        SetTime(name, {isNew_ ? 2000 : 1000, 4});
    }
    void SetTime(const std::string& name, const timespec& time) const {
        const std::array<timespec, 2> times{time, time};
        Check(::utimensat(AT_FDCWD, At(name).c_str(), times.data(), AT_SYMLINK_NOFOLLOW) == 0, name);
    }

    std::string top_;
    bool isNew_;
};

void AddNames(const std::string& top, const std::string& what, std::set<std::string>& names) {
    if (fs::symlink_status(top + "/" + what).type() == fs::file_type::not_found) {
        return;
    }
    names.insert(what);
    if (fs::is_directory(fs::symlink_status(top + "/" + what))) {
        for (const auto& entry : fs::recursive_directory_iterator(top + "/" + what)) {
            names.insert(entry.path().lexically_relative(top).string());
        }
    }
}

fs::file_type TypeOf(const std::string& path) {
    return fs::symlink_status(path).type();
}

/// A directory may be on its way: made and closed to others, or with its old mode still. Its time is the time of the
/// latest change in it until the copy sets it.
bool IsGoodDirectory(const std::string& path, const std::string& old, const std::string& fresh) {
    const auto modeOf = [](const std::string& place) { return fs::symlink_status(place).permissions(); };
    const fs::perms mode = modeOf(path);
    if (TypeOf(path) != fs::file_type::directory || TypeOf(fresh) != fs::file_type::directory) {
        return false;
    }
    return mode == modeOf(fresh) || mode == fs::perms::owner_all ||
           (TypeOf(old) == fs::file_type::directory && mode == modeOf(old));
}

/// Room for every copy of the targets of a few rounds at once.
bool HasMemory() {
    struct statvfs found {};
    return ::access(kMemory, W_OK) == 0 && ::statvfs(kMemory, &found) == 0 &&
           found.f_bavail * found.f_bsize > (std::uint64_t{256} << 20);
}

/// Of one object without the other names it has.
std::vector<std::string> Compare(const std::string& first, const std::string& second) {
    tree_compare_t what;
    what.hardLinks = false;
    return CompareTrees(first, second, what);
}

}  // namespace

kill_place_t::kill_place_t(EPlace where)
    : dir_(where == EPlace::eMemory && HasMemory() ? kMemory : temp_dir_t::Usual()) {
    for (const auto& [name, side] : {std::pair("old", ESide::eOld), std::pair("new", ESide::eNew)}) {
        fs::create_directory(dir_ / name);
        side_maker_t(dir_ / name, side).Make();
    }
    fs::create_directory(Temporary());
}

void kill_place_t::StartOver() const {
    fs::remove_all(Root());
    fs::create_directory(Root());
    side_maker_t(Root(), ESide::eOld).Make();
}

kill_place_t::seen_t kill_place_t::Look(const std::string& what) const {
    seen_t seen;
    std::set<std::string> names, found;
    AddNames(dir_ / "old", what, names);
    AddNames(dir_ / "new", what, names);
    for (const auto& entry : fs::directory_iterator(Root())) {
        const std::string name = entry.path().filename().string();
        if (name == what) {
            AddNames(Root(), name, found);
        } else if (name != kStaging) {
            const std::vector<std::string> differences = Compare(dir_ / ("old/" + name), entry.path().string());
            seen.faults.insert(seen.faults.end(), differences.begin(), differences.end());
        }
    }
    std::set_difference(found.begin(), found.end(), names.begin(), names.end(), std::back_inserter(seen.faults));
    for (const std::string& name : names) {
        const std::string path = Root() + "/" + name, old = dir_ / ("old/" + name), fresh = dir_ / ("new/" + name);
        const bool isThere = TypeOf(path) != fs::file_type::not_found;
        const bool wasThere = TypeOf(old) != fs::file_type::not_found;
        if (isThere ? IsGoodDirectory(path, old, fresh) : !wasThere) {
            continue;
        }
        if (isThere && Compare(fresh, path).empty()) {
            ++seen.fresh;
        } else if (isThere && wasThere && Compare(old, path).empty()) {
            ++seen.old;
        } else {
            seen.faults.push_back(name +
                                  (isThere ? ": neither old nor new: " + Compare(fresh, path).front() : ": gone"));
        }
    }
    return seen;
}

std::vector<std::string> kill_place_t::Missing(const std::string& what) const {
    return CompareTrees(Source(what), Root() + "/" + what);
}

std::vector<std::string> kill_place_t::Staged() const {
    std::vector<std::string> names;
    const std::string folder = Root() + "/" + kStaging;
    if (fs::exists(folder)) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            const std::string name = entry.path().lexically_relative(folder).string();
            if (!entry.is_directory() && name != "lock" && name != "journal" && name.rfind("partial/", 0) != 0) {
                names.push_back(name);
            }
        }
    }
    return names;
}

std::vector<std::string> kill_place_t::LeftTemporary() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(Temporary())) {
        names.push_back(entry.path().lexically_relative(Temporary()).string());
    }
    return names;
}

std::size_t kill_place_t::CountKept() const {
    const std::string folder = Root() + "/" + kStaging + "/partial";
    return fs::exists(folder) ? static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {})) : 0;
}

}  // namespace tests
