#include "tests/reliability/recorded_calls.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace tests {

namespace {

// Not those of links, which cannot be synchronised: they go by name, and a file's come before these of a descriptor.
bool Changes(const std::string& call) {
    static const std::set<std::string> changing = {"write",  "pwrite64", "ftruncate64",
                                                   "fchmod", "futimens", "fsetxattr"};
    return changing.count(call) != 0;
}

bool PutsIntoDirectory(const std::string& call) {
    static const std::set<std::string> putting = {"mkdirat", "symlinkat", "linkat", "renameat2", "unlinkat"};
    return putting.count(call) != 0;
}

}  // namespace

recorded_calls_t::recorded_calls_t(const std::string& log) {
    std::ifstream file(log);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        recorded_call_t call;
        std::string inode;
        words >> call.call >> inode >> call.directory >> call.name;
        call.inode = inode == "?" ? 0 : std::stoul(inode);
        if (call.name != ".tarn-staging") {  // made anew if it is lost
            calls_.push_back(call);
        }
    }
}

std::size_t recorded_calls_t::Count(const std::string& call) const {
    return static_cast<std::size_t>(
        std::count_if(calls_.begin(), calls_.end(), [&](const recorded_call_t& made) { return made.call == call; }));
}

std::size_t recorded_calls_t::Count(const std::string& call, const std::set<ino_t>& inodes) const {
    return static_cast<std::size_t>(std::count_if(calls_.begin(), calls_.end(), [&](const recorded_call_t& made) {
        return made.call == call && inodes.count(made.inode) != 0;
    }));
}

bool recorded_calls_t::IsSynchronised(ino_t inode, std::size_t from, std::size_t to) const {
    return std::any_of(calls_.begin() + static_cast<std::ptrdiff_t>(from),
                       calls_.begin() + static_cast<std::ptrdiff_t>(to), [&](const recorded_call_t& made) {
                           return made.call == "syncfs" || (made.call == "fsync" && made.inode == inode);
                       });
}

std::size_t recorded_calls_t::AfterLastChange(ino_t inode, std::size_t to) const {
    while (to > 0 && !(calls_[to - 1].inode == inode && Changes(calls_[to - 1].call))) {
        --to;
    }
    return to;
}

std::vector<std::string> recorded_calls_t::Tears(const std::set<ino_t>& directories) const {
    std::vector<std::string> tears;
    for (std::size_t at = 0; at < calls_.size(); ++at) {
        const recorded_call_t& made = calls_[at];
        if (PutsIntoDirectory(made.call) && directories.count(made.directory) != 0 &&
            !IsSynchronised(made.directory, at + 1, calls_.size())) {
            tears.push_back(made.call + " " + made.name + ": its directory is never synchronised");
        }
        const std::size_t changed = AfterLastChange(made.inode, at);
        if (made.call == "renameat2" && directories.count(made.directory) != 0 && changed != 0 &&
            !IsSynchronised(made.inode, changed, at)) {
            tears.push_back(made.name + ": named before it is synchronised");
        }
        if (Changes(made.call) && directories.count(made.inode) != 0 &&
            !IsSynchronised(made.inode, at + 1, calls_.size())) {
            tears.push_back(made.call + " of a directory that is not synchronised");
        }
    }
    return tears;
}

std::vector<std::string> recorded_calls_t::Unsettled(const std::set<ino_t>& directories) const {
    std::vector<std::string> unsettled;
    const recorded_call_t* named = nullptr;
    std::size_t namedAt = 0;
    for (std::size_t at = 0; at < calls_.size(); ++at) {
        if (calls_[at].call == "renameat2" && directories.count(calls_[at].directory) != 0) {
            if (named != nullptr && !IsSynchronised(named->directory, namedAt, at)) {
                unsettled.push_back(named->name);
            }
            named = &calls_[at];
            namedAt = at;
        }
    }
    return unsettled;
}

std::set<ino_t> recorded_calls_t::Named(const std::set<ino_t>& directories) const {
    std::set<ino_t> named;
    for (const recorded_call_t& made : calls_) {
        if (made.call == "renameat2" && directories.count(made.directory) != 0) {
            named.insert(made.inode);
        }
    }
    return named;
}

}  // namespace tests
