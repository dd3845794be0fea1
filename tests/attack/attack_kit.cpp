#include "tests/attack/attack_kit.h"

#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "agent/token/item_token.h"
#include "tarn/blocks/file_area_dev_token.h"
#include "tests/support/upload_kit.h"

namespace tests {

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
constexpr std::uint64_t kBlockSize = 4096;
constexpr auto kPlain = io::block::EBufTransformType::eNone;

/// Sends a content and keeps what the far end reports.
class hearing_probe_t final : public io::area::area_read_dev_t, public brannock::transmission::IEntryReportSink {
  public:
    using reports_t = std::vector<brannock::transmission::entry_report_t>;

    hearing_probe_t(std::string content, reports_t& reports) : inner_(std::move(content)), reports_(reports) {}
    std::shared_ptr<io::area::IArea> ReadNext() override { return inner_.ReadNext(); }
    std::string GetDisplayName() override { return inner_.GetDisplayName(); }
    void SetEmptyBlocksMaximum(std::uint64_t maximum) override { inner_.SetEmptyBlocksMaximum(maximum); }
    void OnEntryReports(const reports_t& reports) override { reports_ = reports; }

  private:
    probe_source_t inner_;
    reports_t& reports_;
};

uid_t OwnerOf(const stand_t& stand) {
    return stand.servant == EServant::eNobody ? kNobody : ::geteuid();
}

util::EFileType TypeOf(agent::EItemKind kind) {
    return kind == agent::EItemKind::eDirectory ? util::EFileType::eDirectory
           : kind == agent::EItemKind::eLink    ? util::EFileType::eSymlink
                                                : util::EFileType::eRegular;
}

// An access-control list as the kernel takes it: owner, user 4711, group, mask and others may do everything.
std::string LoudList() {
    std::string list("\2\0\0\0", 4);
    for (const unsigned tag : {0x01U, 0x02U, 0x04U, 0x10U, 0x20U}) {
        const unsigned id = tag == 0x02U ? 4711 : 0xFFFFFFFF;
        for (const unsigned byte : {tag, 0U, 7U, 0U, id, id >> 8, id >> 16, id >> 24}) {
            list.push_back(static_cast<char>(byte & 0xFFU));
        }
    }
    return list;
}

bool IsReachableByEverybody(fs::path path) {
    for (; path.has_relative_path(); path = path.parent_path()) {
        if ((fs::status(path).permissions() & fs::perms::others_exec) == fs::perms::none) {
            return false;
        }
    }
    return true;
}

// What serving confined needs; a child process tries, since it cannot be undone.
bool MayHaveNamespaces(const stand_t& stand) {
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isOther = stand.servant == EServant::eNobody;
        const bool ready = !isOther || (::setgid(kNobody) == 0 && ::setuid(kNobody) == 0);
        const int wanted = ::geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
        ::_exit(ready && ::unshare(wanted) == 0 ? 0 : 1);
    }
    int status = -1;
    return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

std::string NameOfStand(const testing::TestParamInfo<stand_t>& info) {
    return std::string(info.param.confined ? "Confined" : "Unconfined") +
           (info.param.servant == EServant::eNobody ? "AsOrdinaryUser" : "AsOurselves");
}

std::vector<stand_t> ConfinedStands() {
    std::vector<stand_t> stands = {{EServant::eOurselves, true}};
    if (::geteuid() == 0) {
        stands.push_back({EServant::eNobody, true});
    }
    return stands;
}

std::vector<stand_t> AllStands() {
    std::vector<stand_t> stands = ConfinedStands();
    for (const stand_t& confined : ConfinedStands()) {
        stands.push_back({confined.servant, false});
    }
    return stands;
}

attacker_t::attacker_t(std::uint16_t port) : port_(port) {}

attacker_t::~attacker_t() = default;

std::string attacker_t::Attempt(const std::function<void(tarn::file_upload_cli_t&)>& action) {
    try {
        if (!session_) {
            session_ = std::make_unique<agent::net::remote_session_t>(agent::net::endpoint_t{"127.0.0.1", port_},
                                                                      agent::net::remote_options_t{});
        }
        action(session_->Client());
    } catch (const std::exception& error) {
        session_.reset();
        return *error.what() == '\0' ? "failed" : error.what();
    }
    return {};
}

std::string attacker_t::Put(const agent::item_t& item, const std::string& content, bool overwrite) {
    return PutToken(std::make_shared<agent::item_token_t>(item), content, overwrite);
}

std::string attacker_t::PutToken(const std::shared_ptr<io::area::IAreaDevToken>& token, const std::string& content,
                                 bool overwrite) {
    reports_.clear();
    return Attempt([&](tarn::file_upload_cli_t& client) {
        client.UploadItem(kBlockSize, std::make_shared<hearing_probe_t>(content, reports_), token, content.size(),
                          kPlain, {}, overwrite ? 1 : 0, nullptr);
    });
}

std::string attacker_t::SendFile(const std::string& path, const std::string& content) {
    return Attempt([&](tarn::file_upload_cli_t& client) {
        client.UploadFile(kBlockSize, std::make_shared<probe_source_t>(content), path, content.size(), kPlain, {}, 1,
                          nullptr);
    });
}

std::string attacker_t::SendFile(const std::string& path, const std::string& content, const util::CFileInfo& info) {
    return Attempt([&](tarn::file_upload_cli_t& client) {
        client.UploadFileWithPermissions(kBlockSize, std::make_shared<probe_source_t>(content), path, content.size(),
                                         info, kPlain, {}, 1, nullptr);
    });
}

std::string attacker_t::PutWithInfo(const agent::item_t& item, const std::string& content,
                                    const util::CFileInfo& info) {
    return Attempt([&](tarn::file_upload_cli_t& client) {
        client.UploadItemWithPermissions(kBlockSize, std::make_shared<probe_source_t>(content),
                                         std::make_shared<agent::item_token_t>(item), content.size(), info, kPlain, {},
                                         1, nullptr);
    });
}

std::string attacker_t::SendHvir(const std::string& path, const std::string& content) {
    return Attempt([&](tarn::file_upload_cli_t& client) {
        client.UploadItemHVIR(kBlockSize, std::make_shared<probe_source_t>(content),
                              std::make_shared<tarn::CFileAreaDevToken>(path), content.size(),
                              io::block::SBufCompressionSpec(kPlain), {}, nullptr);
    });
}

std::string attacker_t::SendLink(const std::string& path, const std::string& target) {
    return Attempt([&](tarn::file_upload_cli_t& client) { client.UploadSymLink(path, target); });
}

std::optional<bool> attacker_t::Ask(const std::string& path) {
    std::set<std::string> existing;
    const std::string failure =
        Attempt([&](tarn::file_upload_cli_t& client) { client.CheckWhatFilesExist({path}, existing); });
    return failure.empty() ? std::optional<bool>(!existing.empty()) : std::nullopt;
}

util::CFileInfo LoudInfo(util::EFileType type) {
    util::CFileInfo info;
    info.type = type;
    info.owner.id = 4711;
    info.group.id = 4712;
    info.mode = 0777;
    info.accessTime = {2000000000, 1};
    info.modificationTime = {2000000001, 2};
    info.changeTime = {2000000002, 3};
    if (type != util::EFileType::eSymlink) {
        info.attributes.push_back({"user.canary", "evil"});
        info.attributes.push_back({"system.posix_acl_access", LoudList()});
    }
    return info;
}

agent::item_t LoudItem(agent::EItemKind kind, const std::string& path, const std::string& second) {
    agent::item_t item;
    item.kind = kind;
    item.path = path;
    item.second = second;
    if (kind == agent::EItemKind::eFile || kind == agent::EItemKind::eDirectory || kind == agent::EItemKind::eLink) {
        item.info = LoudInfo(TypeOf(kind));
    }
    return item;
}

std::uint64_t RepeatFor(std::chrono::milliseconds time, const std::function<void()>& action) {
    const auto end = std::chrono::steady_clock::now() + time;
    std::uint64_t times = 0;
    do {
        action();
        ++times;
    } while (std::chrono::steady_clock::now() < end && !testing::Test::HasFailure());
    return times;
}

attack_fixture_t::attack_fixture_t(const stand_t& stand) : stand_(stand) {
    fs::permissions(dir_.path(), fs::perms(0755));
    canary_.emplace(Place("canary"), OwnerOf(stand_));
    MakeDirectory(Root());
    MakeDirectory(Place("source"));
}

attack_fixture_t::~attack_fixture_t() = default;

void attack_fixture_t::GiveAway(const std::string& path) const {
    const uid_t owner = OwnerOf(stand_);
    if (owner != ::geteuid() && ::lchown(path.c_str(), owner, owner) != 0) {
        throw std::runtime_error("cannot give away " + path);
    }
}

void attack_fixture_t::MakeDirectory(const std::string& path) const {
    fs::create_directory(path);
    GiveAway(path);
}

void attack_fixture_t::MakeFile(const std::string& path, const std::string& content) const {
    WriteFile(path, content);
    GiveAway(path);
}

void attack_fixture_t::MakeLink(const std::string& path, const std::string& target) const {
    fs::create_symlink(target, path);
    GiveAway(path);
}

void attack_fixture_t::ExpectUnharmed(ECanaryView view) {
    EXPECT_EQ(Canary().Damage(view), "");
    EXPECT_EQ(Canary().Leaks(Root()), "");
}

served_attack_t::served_attack_t() : attack_fixture_t(GetParam()) {}

void served_attack_t::SetUp() {
    if (GetParam().servant == EServant::eNobody && !IsReachableByEverybody(TARN_COMMAND)) {
        GTEST_SKIP() << "an ordinary user cannot reach " << TARN_COMMAND;
    }
    if (GetParam().confined && !MayHaveNamespaces(GetParam())) {
        GTEST_SKIP() << "this host, or the sandbox around the test, allows no namespaces";
    }
}

void served_attack_t::Serve() {
    serve_child_options_t options;
    options.arguments = {"--log-level", "error"};
    if (!GetParam().confined) {
        options.arguments.emplace_back("--unconfined");
    }
    options.asNobody = GetParam().servant == EServant::eNobody;
    server_.emplace(TARN_COMMAND, Root(), options);
    attacker_.emplace(server_->Port());
}

}  // namespace tests
