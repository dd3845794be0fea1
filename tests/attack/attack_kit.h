#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "agent/net/remote_session.h"
#include "agent/token/item.h"
#include "brannock/transmission/entry_reports.h"
#include "mirrowen/io/area/area_dev_token.h"
#include "mirrowen/util/file_info.h"
#include "tests/attack/canary.h"
#include "tests/support/serve_child.h"
#include "tests/support/temp_dir.h"

namespace tests {

/// As whom a child serves.
enum class EServant { eOurselves, eNobody };

/// How a child serves while it is attacked.
struct stand_t {
    EServant servant = EServant::eOurselves;
    bool confined = true;
};

/// "ConfinedAsOurselves" and so on: the names of the stands in the names of tests.
std::string NameOfStand(const testing::TestParamInfo<stand_t>& info);
/// As this process and, when that is root, as an ordinary user, too; held by the kernel or not.
std::vector<stand_t> AllStands();
/// Those of them in which the kernel holds.
std::vector<stand_t> ConfinedStands();

/// A peer that speaks the dialogue flawlessly and says what it likes with it. Every function opens a session when there
/// is none and drops it after a failure. Each returns the text of the failure; empty for success. One thread.
class attacker_t {
  public:
    explicit attacker_t(std::uint16_t port);
    ~attacker_t();

    /// Command 5 with an item of any kind and path.
    std::string Put(const agent::item_t& item, const std::string& content = "", bool overwrite = true);
    /// Command 5 with any token.
    std::string PutToken(const std::shared_ptr<io::area::IAreaDevToken>& token, const std::string& content,
                         bool overwrite = true);
    /// What the server has said of the entries of the last item.
    const std::vector<brannock::transmission::entry_report_t>& Reports() const { return reports_; }
    /// Command 6 with such an item: its attributes, and some beside it.
    std::string PutWithInfo(const agent::item_t& item, const std::string& content, const util::CFileInfo& info);
    /// Command 5 with the token of a file, or 6 with a file info.
    std::string SendFile(const std::string& path, const std::string& content);
    std::string SendFile(const std::string& path, const std::string& content, const util::CFileInfo& info);
    /// Command 8 with such a token.
    std::string SendHvir(const std::string& path, const std::string& content);
    /// Command 10.
    std::string SendLink(const std::string& path, const std::string& target);
    /// Command 9 for one path: whether it exists; nothing when there was no answer.
    std::optional<bool> Ask(const std::string& path);

  private:
    std::string Attempt(const std::function<void(tarn::file_upload_cli_t&)>& action);

    const std::uint16_t port_;
    std::unique_ptr<agent::net::remote_session_t> session_;
    std::vector<brannock::transmission::entry_report_t> reports_;
};

/// An item with attributes that would be seen on whatever they were set.
agent::item_t LoudItem(agent::EItemKind kind, const std::string& path, const std::string& second = "");
/// The attributes of such an item: everything allowed, other times, an extended attribute.
util::CFileInfo LoudInfo(util::EFileType type);

/// What is repeated against somebody who swaps names: until `time` is over, and once at least. Returns how often.
std::uint64_t RepeatFor(std::chrono::milliseconds time, const std::function<void()>& action);
inline constexpr std::chrono::milliseconds kAttackTime{700};

/// A place with a root that is served, sources, and the canary beside them.
class attack_fixture_t : public testing::Test {
  protected:
    explicit attack_fixture_t(const stand_t& stand = {});
    ~attack_fixture_t() override;

    std::string Place(const std::string& name) const { return dir_ / name; }
    std::string Root(const std::string& name = "") const { return Place(name.empty() ? "root" : "root/" + name); }
    canary_t& Canary() { return *canary_; }

    /// A directory for whoever serves.
    void MakeDirectory(const std::string& path) const;
    void MakeFile(const std::string& path, const std::string& content) const;
    void MakeLink(const std::string& path, const std::string& target) const;

    /// The canary is as it was, nobody has read it, and nothing of it lies below the root.
    void ExpectUnharmed(ECanaryView view = ECanaryView::eEverything);

  private:
    void GiveAway(const std::string& path) const;

    const stand_t stand_;
    temp_dir_t dir_;
    std::optional<canary_t> canary_;
};

/// The same with a child that serves the root.
class served_attack_t : public attack_fixture_t, public testing::WithParamInterface<stand_t> {
  protected:
    served_attack_t();
    void SetUp() override;

    serve_child_t& Server() { return *server_; }
    attacker_t& Attacker() { return *attacker_; }
    /// Starts the child; a test that needs something below the root before that calls it itself.
    void Serve();

  private:
    std::optional<serve_child_t> server_;
    std::optional<attacker_t> attacker_;
};

}  // namespace tests
