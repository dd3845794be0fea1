#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <ostream>

#include "tests/reliability/kill_rounds.h"

namespace tests {
namespace {

constexpr unsigned kKills = 25;
// The same plans each time, so that what fails can be looked at; the soak makes new ones.
constexpr std::uint64_t kSeed = 2520570116;

struct kill_case_t {
    const char* name;
    EVictim victim;
    EMoment moment;

    friend std::ostream& operator<<(std::ostream& out, const kill_case_t& shown) { return out << shown.name; }
};

/// One of the ways in which a process is killed, again and again at other moments.
class KilledCopy : public testing::TestWithParam<kill_case_t> {};

TEST_P(KilledCopy, LeavesOldOrNewTargetsAndIsCompletedByTheNext) {
    const char* const wanted = std::getenv("TARN_SEED");
    const std::uint64_t seed = wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : kSeed;
    std::cout << "TARN_SEED=" << seed << "\n";
    kill_rounds_t rounds(TARN_COMMAND, TARN_CALL_WATCH, EPlace::eMemory);
    kill_plan_t plan{GetParam().victim, GetParam().moment};
    if (!rounds.CanRun(plan)) {
        GTEST_SKIP() << "calls are not counted under a sanitizer";
    }
    for (std::uint64_t round = 0, kills = 0; kills < kKills; ++round) {
        plan.durable = static_cast<EDurable>(round % 3);
        plan.large = round % 5 == 4;
        const kill_result_t result = rounds.Run(plan, seed + round);
        kills += result.kills + result.late;
        for (const std::string& fault : result.faults) {
            ADD_FAILURE() << "round " << round << ": " << fault;
        }
        if (HasFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, KilledCopy,
                         testing::Values(kill_case_t{"SenderByTime", EVictim::eSender, EMoment::eTime},
                                         kill_case_t{"SenderByByteOfTheWire", EVictim::eSender, EMoment::eWire},
                                         kill_case_t{"SenderByCall", EVictim::eSender, EMoment::eCall},
                                         kill_case_t{"ReceiverByTime", EVictim::eReceiver, EMoment::eTime},
                                         kill_case_t{"ReceiverByByteOfTheWire", EVictim::eReceiver, EMoment::eWire},
                                         kill_case_t{"ReceiverByCall", EVictim::eReceiver, EMoment::eCall},
                                         kill_case_t{"LocalByTime", EVictim::eLocal, EMoment::eTime},
                                         kill_case_t{"LocalByCall", EVictim::eLocal, EMoment::eCall}),
                         [](const auto& param) { return param.param.name; });

}  // namespace
}  // namespace tests
