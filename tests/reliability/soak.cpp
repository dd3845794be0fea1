// Kills copies at random moments, many times, and prints what came of it as a table: soak [KILLS [SEED]].
// Exits with 0 only when nothing was found that should not be.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>

#include "tests/reliability/kill_rounds.h"

namespace {

using namespace tests;

struct row_t {
    const char* victim;
    const char* moment;
    kill_plan_t plan;
    kill_result_t sum = {};
    unsigned rounds = 0;
    double seconds = 0;
};

void Add(const kill_result_t& result, kill_result_t& sum) {
    sum.kills += result.kills;
    sum.late += result.late;
    sum.old += result.old;
    sum.fresh += result.fresh;
    sum.kept += result.kept;
    sum.faults.insert(sum.faults.end(), result.faults.begin(), result.faults.end());
}

void Print(const row_t& row) {
    std::printf("%-10s %-12s %7u %7u %6u %9llu %9llu %7u %7zu %9.1f\n", row.victim, row.moment, row.rounds,
                row.sum.kills, row.sum.late, static_cast<unsigned long long>(row.sum.old),
                static_cast<unsigned long long>(row.sum.fresh), row.sum.kept, row.sum.faults.size(), row.seconds);
}

int Soak(unsigned kills, std::uint64_t seed) {
    std::array<row_t, 8> rows{{{"sender", "time", {EVictim::eSender, EMoment::eTime}},
                               {"sender", "byte on wire", {EVictim::eSender, EMoment::eWire}},
                               {"sender", "system call", {EVictim::eSender, EMoment::eCall}},
                               {"receiver", "time", {EVictim::eReceiver, EMoment::eTime}},
                               {"receiver", "byte on wire", {EVictim::eReceiver, EMoment::eWire}},
                               {"receiver", "system call", {EVictim::eReceiver, EMoment::eCall}},
                               {"local", "time", {EVictim::eLocal, EMoment::eTime}},
                               {"local", "system call", {EVictim::eLocal, EMoment::eCall}}}};
    kill_rounds_t rounds(TARN_COMMAND, TARN_CALL_WATCH, EPlace::eDisk);
    row_t all{"all", "", {}};
    std::printf("seed %llu\n%-10s %-12s %7s %7s %6s %9s %9s %7s %7s %9s\n", static_cast<unsigned long long>(seed),
                "killed", "by", "rounds", "kills", "late", "old", "new", "kept", "faults", "seconds");
    for (row_t& row : rows) {
        while (rounds.CanRun(row.plan) && row.sum.kills < (kills + rows.size() - 1) / rows.size()) {
            const auto begin = std::chrono::steady_clock::now();
            row.plan.durable = static_cast<EDurable>(row.rounds % 3);
            row.plan.large = row.rounds % 5 == 4;
            const kill_result_t result = rounds.Run(row.plan, seed + row.rounds);
            for (const std::string& fault : result.faults) {
                std::printf("seed %llu: %s\n", static_cast<unsigned long long>(seed + row.rounds), fault.c_str());
            }
            Add(result, row.sum);
            ++row.rounds;
            row.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        }
        Print(row);
        std::fflush(stdout);
        Add(row.sum, all.sum);
        all.rounds += row.rounds;
        all.seconds += row.seconds;
    }
    Print(all);
    return all.sum.faults.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned long kills = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000;
    if (kills == 0 || kills > 1'000'000) {
        std::fprintf(stderr, "usage: soak [KILLS [SEED]]\n");
        return 2;
    }
    try {
        return Soak(static_cast<unsigned>(kills),
                    argc > 2 ? std::strtoull(argv[2], nullptr, 10) : std::random_device()());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 1;
    }
}
