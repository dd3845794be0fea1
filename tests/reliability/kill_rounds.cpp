#include "tests/reliability/kill_rounds.h"

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/fault_proxy.h"

namespace tests {

namespace {

struct commands_t {
    std::string tarn;
    std::string watch;  ///< the library that counts calls
};

/// When a kill comes; all zero: never.
struct moment_t {
    std::uint64_t microseconds = 0;
    std::uint64_t call = 0;
    EWay way = EWay::eThere;
    std::optional<std::uint64_t> byte;
};

std::string WhatOf(const kill_plan_t& plan) {
    return plan.large ? "large" : "tree";
}

/// One copy and, unless it is a local one, the agent that receives it.
class kill_copy_t {
  public:
    kill_copy_t(const commands_t& commands, const kill_place_t& place, const kill_plan_t& plan)
        : commands_(commands), place_(place), plan_(plan) {}

    /// Starts the agent. False when it was killed before it listened.
    bool Serve(const moment_t& kill = {}, bool isLogged = false);
    bool IsServing() const { return server_ != nullptr; }
    /// Runs a copy to its end and kills the victim on the way. Whether the kill met a running process.
    bool Copy(const moment_t& kill, bool isLogged = false);
    /// Ends the agent as a user would. False when it was killed on the way.
    bool EndServer();

    /// How the sender ended: its status, or a negative signal.
    int Status() const { return status_; }
    std::string Errors() const { return errors_; }
    std::size_t PassedBytes(EWay way) const { return proxy_->Passed(way).size(); }

  private:
    std::vector<std::string> Environment(const moment_t& kill, bool isLogged) const;
    std::vector<std::string> CopyWords() const;
    /// Waits until the agent has told the end of every session.
    void WaitUntilIdle();

    const commands_t& commands_;
    const kill_place_t& place_;
    kill_plan_t plan_;
    std::unique_ptr<child_process_t> server_;
    std::unique_ptr<fault_proxy_t> proxy_;
    int status_ = 0;
    std::string errors_;
    std::size_t sessions_ = 0;  ///< of this agent that have ended
};

std::vector<std::string> kill_copy_t::Environment(const moment_t& kill, bool isLogged) const {
    std::vector<std::string> variables = {"TMPDIR=" + place_.Temporary()};
    if (kill.call != 0 || isLogged) {
        variables.push_back("LD_PRELOAD=" + commands_.watch);
    }
    if (kill.call != 0) {
        variables.push_back("TARN_WATCH_DIE=" + std::to_string(kill.call));
    }
    if (isLogged) {
        variables.push_back("TARN_WATCH_LOG=" + place_.Log());
    }
    return variables;
}

std::vector<std::string> kill_copy_t::CopyWords() const {
    constexpr const char* durable[] = {"--durable=each", "--durable=tree", "--durable=none"};
    std::vector<std::string> words = {commands_.tarn,
                                      "cp",
                                      "-r",
                                      "--overwrite",
                                      durable[static_cast<int>(plan_.durable)],
                                      place_.Source(WhatOf(plan_))};
    if (plan_.victim == EVictim::eLocal) {
        words.push_back(place_.Root());
    } else {
        words.push_back("--plaintext");
        words.push_back("tarn://127.0.0.1:" + std::to_string(proxy_->Port()) + "/");
    }
    return words;
}

bool kill_copy_t::Serve(const moment_t& kill, bool isLogged) {
    std::vector<std::string> words = {commands_.tarn, "serve",  "--plaintext", "--listen",
                                      "127.0.0.1:0",  "--root", place_.Root()};
    if (kill.call != 0 || isLogged) {
        words.push_back("--unconfined");  // its confinement closes what the watch has open
    }
    server_ = std::make_unique<child_process_t>(words, Environment(kill, isLogged));
    const std::optional<std::string> line = server_->ReadLine();
    constexpr std::string_view kStart = "listening on 127.0.0.1:";
    if (!line && server_->Wait() == -SIGKILL) {
        server_.reset();
        return false;
    }
    if (!line || line->rfind(kStart, 0) != 0) {
        throw std::runtime_error("tarn serve did not start: " + server_->Errors());
    }
    sessions_ = 0;
    proxy_ = std::make_unique<fault_proxy_t>(static_cast<std::uint16_t>(std::stoul(line->substr(kStart.size()))));
    return true;
}

bool kill_copy_t::Copy(const moment_t& kill, bool isLogged) {
    const bool isSender = plan_.victim != EVictim::eReceiver;
    std::unique_ptr<child_process_t> sender;
    std::mutex mutex;
    {
        // The wire may ask for the victim before it is known here.
        const std::scoped_lock lock(mutex);
        if (kill.byte) {
            proxy_->CallAt(kill.way, *kill.byte, [&] {
                const std::scoped_lock inner(mutex);
                (isSender ? sender : server_)->Kill(SIGKILL);
            });
        }
        sender = std::make_unique<child_process_t>(CopyWords(), Environment(isSender ? kill : moment_t{}, isLogged));
    }
    if (kill.microseconds != 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(kill.microseconds));
        (isSender ? sender : server_)->Kill(SIGKILL);
    }
    status_ = sender->Wait();
    errors_ = sender->Errors();
    if (proxy_ != nullptr) {
        proxy_->CallAt(EWay::eThere, std::numeric_limits<std::uint64_t>::max(), [] {});  // in place of ours
    }
    const std::scoped_lock lock(mutex);
    const bool isServerDead = server_ != nullptr && server_->WaitFor(0).has_value();
    if (isServerDead) {
        server_.reset();
    } else if (server_ != nullptr) {
        WaitUntilIdle();
    }
    return isSender ? status_ == -SIGKILL : isServerDead;
}

void kill_copy_t::WaitUntilIdle() {
    for (; sessions_ < proxy_->Connections(); ++sessions_) {
        if (!server_->ReadLine()) {
            throw std::runtime_error("tarn serve has ended: " + server_->Errors());
        }
    }
}

bool kill_copy_t::EndServer() {
    server_->Kill(SIGTERM);
    const int status = server_->Wait();
    const std::string errors = server_->Errors();
    server_.reset();
    if (status != 0 && status != -SIGKILL) {
        throw std::runtime_error("tarn serve ended with " + std::to_string(status) + ": " + errors);
    }
    return status == 0;
}

std::uint64_t CountLines(const std::string& path) {
    std::ifstream file(path);
    return static_cast<std::uint64_t>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
}

moment_t ChooseMoment(EMoment kind, const kill_lengths_t& lengths, std::mt19937_64& random) {
    const auto upTo = [&](std::uint64_t most) { return std::uniform_int_distribution<std::uint64_t>(1, most)(random); };
    moment_t moment;
    switch (kind) {
        case EMoment::eTime:
            moment.microseconds = upTo(lengths.microseconds);
            break;
        case EMoment::eWire:
            moment.way = random() % 2 == 0 ? EWay::eThere : EWay::eBack;
            moment.byte = upTo(moment.way == EWay::eThere ? lengths.bytesThere : lengths.bytesBack) - 1;
            break;
        case EMoment::eCall:
            moment.call = upTo(lengths.calls);
            break;
    }
    return moment;
}

/// One round: what it found, and the steps of finding it.
class kill_round_t {
  public:
    kill_round_t(const commands_t& commands, const kill_place_t& place, const kill_plan_t& plan)
        : place_(place), plan_(plan), copy_(commands, place, plan) {}

    void Kill(const moment_t& moment) {
        if (Copy(moment)) {
            ++result.kills;
        } else {
            ++result.late;
        }
        const kill_place_t::seen_t seen = place_.Look(WhatOf(plan_));
        result.old += seen.old;
        result.fresh += seen.fresh;
        result.kept += place_.CountKept() != 0;
        AddAll("after a kill: ", seen.faults);
    }

    void Complete() {
        Start({});
        copy_.Copy({});
        ExpectDone();
        if (copy_.IsServing()) {
            copy_.EndServer();
        }
        const kill_place_t::seen_t seen = place_.Look(WhatOf(plan_));
        AddAll("in the end: ", seen.faults);
        AddAll("staged in the end: ", place_.Staged());
        AddAll("temporary in the end: ", place_.LeftTemporary());
        if (seen.old != 0 || place_.CountKept() != 0) {
            Add("in the end: " + std::to_string(seen.old) +
                " targets are old, parts kept: " + std::to_string(place_.CountKept()));
        }
    }

    kill_result_t result;

  private:
    /// Whether the kill met a running process.
    bool Copy(const moment_t& moment) {
        const bool isReceiver = plan_.victim == EVictim::eReceiver;
        if (!Start(isReceiver ? moment : moment_t{})) {
            return true;
        }
        const bool isKilled = copy_.Copy(moment);
        if (copy_.Status() == 0 || !isKilled) {
            ExpectDone();
        }
        // The agent's own end is a part of its life, too.
        if (isReceiver && copy_.IsServing()) {
            return !copy_.EndServer();
        }
        return isKilled;
    }

    /// Starts the agent if there is to be one. False when it was killed at once.
    bool Start(const moment_t& moment) {
        if (plan_.victim == EVictim::eLocal || copy_.IsServing()) {
            return true;
        }
        if (!copy_.Serve(moment)) {
            return false;
        }
        AddAll("not cleared by the start: ", place_.Staged());
        return true;
    }

    void ExpectDone() {
        if (copy_.Status() != 0) {
            Add("a copy ended with " + std::to_string(copy_.Status()) + ": " + copy_.Errors());
        }
        AddAll("after a copy that was not disturbed: ", place_.Missing(WhatOf(plan_)));
    }

    void Add(const std::string& fault) { result.faults.push_back(fault); }
    void AddAll(const std::string& when, const std::vector<std::string>& faults) {
        for (const std::string& fault : faults) {
            Add(when + fault);
        }
    }

    const kill_place_t& place_;
    kill_plan_t plan_;
    kill_copy_t copy_;
};

}  // namespace

kill_rounds_t::kill_rounds_t(std::string command, std::string watch, EPlace where)
    : command_(std::move(command)), watch_(std::move(watch)), place_(where) {}

kill_rounds_t::~kill_rounds_t() = default;

bool kill_rounds_t::CanRun(const kill_plan_t& plan) const {
    switch (plan.moment) {
        case EMoment::eTime:
            return true;
        case EMoment::eWire:
            return plan.victim != EVictim::eLocal;
        case EMoment::eCall:
            return !watch_.empty();
    }
    return false;
}

const kill_lengths_t& kill_rounds_t::LengthsOf(const kill_plan_t& plan) {
    const auto [at, isNew] = lengths_.try_emplace({plan.victim, plan.durable, plan.large});
    kill_lengths_t& lengths = at->second;
    if (!isNew) {
        return lengths;
    }
    const bool isReceiver = plan.victim == EVictim::eReceiver;
    const commands_t commands{command_, watch_};
    const auto run = [&](bool isLogged) {
        place_.StartOver();
        kill_copy_t copy(commands, place_, plan);
        if (plan.victim != EVictim::eLocal) {
            copy.Serve({}, isLogged && isReceiver);
        }
        const auto begin = std::chrono::steady_clock::now();
        copy.Copy({}, isLogged && !isReceiver);
        const auto end = std::chrono::steady_clock::now();
        if (copy.Status() != 0) {
            throw std::runtime_error("an undisturbed copy failed: " + copy.Errors());
        }
        if (plan.victim != EVictim::eLocal) {
            lengths.bytesThere = copy.PassedBytes(EWay::eThere);
            lengths.bytesBack = copy.PassedBytes(EWay::eBack);
            copy.EndServer();
        }
        return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(end - begin).count());
    };
    lengths.microseconds = run(false);
    if (!watch_.empty()) {
        std::filesystem::remove(place_.Log());
        run(true);
        lengths.calls = CountLines(place_.Log());
    }
    return lengths;
}

kill_result_t kill_rounds_t::Run(const kill_plan_t& plan, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    const kill_lengths_t& lengths = LengthsOf(plan);
    const commands_t commands{command_, watch_};
    place_.StartOver();
    kill_round_t round(commands, place_, plan);
    for (std::uint64_t kills = 1 + random() % 2; kills > 0; --kills) {
        round.Kill(ChooseMoment(plan.moment, lengths, random));
    }
    round.Complete();
    return std::move(round.result);
}

}  // namespace tests
