#pragma once

#include <sys/types.h>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace tests {

/// One of the system calls that a command was watched at.
struct recorded_call_t {
    std::string call;
    ino_t inode = 0;      ///< of the object; 0 for one that the call makes
    ino_t directory = 0;  ///< into which the object is put
    std::string name;     ///< under which it is put there
};

/// The calls of one run in their order, and what that order means for a power cut.
class recorded_calls_t {
  public:
    explicit recorded_calls_t(const std::string& log);

    /// How many calls of this name there are; with `inodes` only those on one of them.
    std::size_t Count(const std::string& call) const;
    std::size_t Count(const std::string& call, const std::set<ino_t>& inodes) const;

    /// What a power cut could tear: an object that got its name in one of `directories` before its contents and
    /// attributes were synchronised, and a change of a directory that was never synchronised.
    std::vector<std::string> Tears(const std::set<ino_t>& directories) const;
    /// The names that were given in one of `directories` and not synchronised there before the next was given.
    std::vector<std::string> Unsettled(const std::set<ino_t>& directories) const;
    /// What was renamed into one of `directories`.
    std::set<ino_t> Named(const std::set<ino_t>& directories) const;

  private:
    /// Whether `inode` is synchronised, by itself or with its file system, by a call in [from, to).
    bool IsSynchronised(ino_t inode, std::size_t from, std::size_t to) const;
    /// Where the latest change of `inode` before `to` is followed by the next call; 0 when there is none.
    std::size_t AfterLastChange(ino_t inode, std::size_t to) const;

    std::vector<recorded_call_t> calls_;
};

}  // namespace tests
