#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "tests/reliability/kill_place.h"

namespace tests {

/// Which process is killed.
enum class EVictim {
    eSender,    ///< `tarn cp` to an agent
    eReceiver,  ///< `tarn serve`
    eLocal,     ///< `tarn cp` from place to place on one machine
};
/// What says when.
enum class EMoment {
    eTime,  ///< a random part of the time that a whole copy takes
    eWire,  ///< a random byte on its way between the two ends
    eCall,  ///< right before a random one of the system calls that change files or talk to the other end
};
/// How the copy waits for the storage.
enum class EDurable { eEach, eTree, eNone };

struct kill_plan_t {
    EVictim victim = EVictim::eSender;
    EMoment moment = EMoment::eTime;
    EDurable durable = EDurable::eTree;
    bool large = false;  ///< one file that is large enough to be resumed, in place of a tree
};

/// How long an undisturbed copy is. A kill comes at a random place of it.
struct kill_lengths_t {
    std::uint64_t microseconds = 0;
    std::uint64_t bytesThere = 0;  ///< to the agent
    std::uint64_t bytesBack = 0;
    std::uint64_t calls = 0;  ///< of the victim
};

/// What came of one round.
struct kill_result_t {
    unsigned kills = 0;               ///< that met a running process
    unsigned late = 0;                ///< whose moment never came, or came when it had ended already
    std::uint64_t old = 0;            ///< targets found as they were before, after the kills
    std::uint64_t fresh = 0;          ///< targets found as they were to be
    unsigned kept = 0;                ///< kills after which the receiver kept a part to go on from
    std::vector<std::string> faults;  ///< what should not be, one line each
};

/// Copies again and again over the same targets, kills one end on the way, and looks at what is left: each target has
/// to be the old one or the new one entire, with nothing beside it but the staging folder, the next start has to clear
/// that, and the next copy has to bring everything. All files lie in one temporary directory. One thread.
class kill_rounds_t {
  public:
    /// `command` is the path of `tarn`; `watch` that of the library that counts calls, empty where there is none.
    kill_rounds_t(std::string command, std::string watch, EPlace where);
    ~kill_rounds_t();

    /// Whether a plan is possible: only an agent has a wire, and only the library counts calls.
    bool CanRun(const kill_plan_t& plan) const;
    /// One round with one or two kills. The same seed plans the same kills, though time has its part in them. The first
    /// round of a plan copies undisturbed before, to see how long that is in time, bytes and calls.
    kill_result_t Run(const kill_plan_t& plan, std::uint64_t seed);

  private:
    const kill_lengths_t& LengthsOf(const kill_plan_t& plan);

    std::string command_, watch_;
    kill_place_t place_;
    std::map<std::tuple<EVictim, EDurable, bool>, kill_lengths_t> lengths_;
};

}  // namespace tests
