#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace tests {

/// Memory is faster; a process that is killed leaves the same behind there. Falls back to the disk.
enum class EPlace { eDisk, eMemory };

/// The files of the kill rounds: what the targets were, what they are to be, and what they are.
///
/// "tree" has a bit of everything: files that are replaced, new and unchanged ones, links, directories whose mode
/// changes. "large" is one file that is large enough to be resumed.
class kill_place_t {
  public:
    explicit kill_place_t(EPlace where);

    /// Puts the old targets in place, and nothing else.
    void StartOver() const;

    std::string Source(const std::string& what) const { return dir_ / ("new/" + what); }
    std::string Root() const { return dir_ / "root"; }
    std::string Log() const { return dir_ / "log"; }
    /// Where the commands put their temporary files.
    std::string Temporary() const { return dir_ / "temporary"; }

    /// What the targets are after a kill.
    struct seen_t {
        std::uint64_t old = 0;    ///< as they were
        std::uint64_t fresh = 0;  ///< as they are to be; those that do not change count here
        std::vector<std::string> faults;
    };
    /// Looks at every target of `what` and for everything that is none.
    seen_t Look(const std::string& what) const;
    /// How the targets differ from what they are to be.
    std::vector<std::string> Missing(const std::string& what) const;
    /// What lies in the staging folder besides its lock and its journal and what is kept to go on from.
    std::vector<std::string> Staged() const;
    /// The temporary files that are there.
    std::vector<std::string> LeftTemporary() const;
    /// How many parts are kept to go on from.
    std::size_t CountKept() const;

  private:
    temp_dir_t dir_;
};

}  // namespace tests
