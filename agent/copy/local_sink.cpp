#include "agent/copy/local_sink.h"

#include <utility>

#include "agent/copy/empty_source.h"
#include "agent/copy/entry_outcome.h"
#include "agent/meta/item_warnings.h"
#include "agent/meta/owner_power.h"
#include "agent/query/content_digest.h"
#include "brannock/transmission/transmit.h"
#include "mirrowen/util/fs.h"

namespace agent::copy {

namespace {

struct anchored_t {
    std::string root;
    std::string rest;
};

std::string without_trailing_slashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// The nearest directory that exists, and what of the path lies below it.
anchored_t anchor(const std::string& destination) {
    anchored_t at{without_trailing_slashes(destination), ""};
    while (!util::fs_directory_exists(at.root)) {
        const std::size_t slash = at.root.rfind('/');
        const std::string last = slash == std::string::npos ? at.root : at.root.substr(slash + 1);
        at.rest = at.rest.empty() ? last : last + "/" + at.rest;
        at.root = slash == std::string::npos ? "."
                  : slash == 0               ? "/"
                                             : without_trailing_slashes(at.root.substr(0, slash));
    }
    return at;
}

}  // namespace

local_sink_t::local_sink_t(const std::string& destination, const copy_options_t& options) : options_(options) {
    const anchored_t at = anchor(destination);
    prefix_ = at.rest;
    root_ = confined_root_t::Open(at.root);
}

local_sink_t::~local_sink_t() = default;

bool local_sink_t::IsDirectory(const std::string& path) {
    const std::string name = BelowRoot(path);
    if (name.empty()) {
        return true;
    }
    const auto attributes = root_->TryStat(name);
    return attributes && S_ISDIR(attributes->st_mode);
}

std::optional<std::string> local_sink_t::FindInTheWay(const std::vector<question_t>& questions) {
    for (const question_t& question : questions) {
        const std::string name = BelowRoot(question.path);
        if (name.empty()) {
            continue;
        }
        const auto attributes = root_->TryStat(name);
        if (attributes && !(question.forDirectory && S_ISDIR(attributes->st_mode))) {
            return question.path;
        }
    }
    return std::nullopt;
}

std::vector<std::optional<object_brief_t>> local_sink_t::Examine(const std::vector<std::string>& paths) {
    std::vector<std::optional<object_brief_t>> found;
    found.reserve(paths.size());
    for (const std::string& path : paths) {
        found.push_back(agent::Examine(*root_, BelowRoot(path)));
    }
    return found;
}

bool local_sink_t::KeepsOwners() {
    return CanGiveAnyOwner();
}

std::optional<query::content_digest_t> local_sink_t::Digest(const std::string& path) {
    return query::DigestFile(*root_, BelowRoot(path), options_.remote.stop);
}

std::optional<partial_t> local_sink_t::FindPartial(const std::string& path, std::uint64_t size,
                                                   const util::SFileTime& time) {
    return staging_->FindPartial(BelowRoot(path), size, time);
}

item_sink_t::committed_t local_sink_t::Commit(const guid::guid_t& copy, std::uint64_t entries) {
    item_t commit;
    commit.kind = EItemKind::eCommit;
    commit.copy = copy;
    commit.entry = entries;
    commit.unsynced = options_.durability == EDurability::eNone;
    const auto device = Receive(std::move(commit), 0, false);
    Transfer(std::make_shared<empty_source_t>("commit"), device, nullptr);
    entry_outcome_t outcome;
    if (auto* const reporter = dynamic_cast<brannock::transmission::IEntryReporter*>(device.get())) {
        outcome.Add(reporter->TakeEntryReports());
    }
    return outcome.Take();
}

void local_sink_t::Put(const item_t& item, std::shared_ptr<io::area::area_read_dev_t> source, std::uint64_t size,
                       bool overwrite, std::shared_ptr<progress::progress_base_t> progress,
                       std::vector<copy_note_t>& warnings) {
    const auto collected = std::make_shared<item_warnings_t>();
    const warning_scope_t scope(collected);
    item_t placed = item;
    placed.path = BelowRoot(item.path);
    if (item.kind == EItemKind::eHardLink) {
        placed.second = BelowRoot(item.second);
    }
    Transfer(std::move(source), Receive(std::move(placed), size, overwrite), std::move(progress));
    for (const item_warning_t& warning : collected->Get()) {
        warnings.push_back({warning.path, warning.text});
    }
}

std::shared_ptr<io::area::area_write_dev_t> local_sink_t::Receive(item_t item, std::uint64_t size,
                                                                  bool overwrite) const {
    CheckItem(item);
    return receiver_->Receive(std::move(item), size, overwrite ? EReplace::eYes : EReplace::eNo);
}

void local_sink_t::Transfer(std::shared_ptr<io::area::area_read_dev_t> source,
                            std::shared_ptr<io::area::area_write_dev_t> device,
                            std::shared_ptr<progress::progress_base_t> progress) const {
    brannock::transmission::transmission_cfg_t cfg(options_.blockSize, brannock::transmission::kTransportVersion);
    cfg.EnableSequensor();
    brannock::transmission::Transmit(std::move(source), std::move(device), cfg, std::move(progress));
}

void local_sink_t::Begin() {
    staging_ = std::make_shared<staging_t>(root_, staging_options_t{EStagingUse::eShared, options_.keepPartial});
    receiver_ = std::make_unique<staging_receiver_t>(staging_);
}

void local_sink_t::End() {}

std::string local_sink_t::Shown(const std::string& path) const {
    return root_->Shown(BelowRoot(path));
}

std::string local_sink_t::BelowRoot(const std::string& path) const {
    if (path.empty()) {
        return prefix_;
    }
    return prefix_.empty() ? path : prefix_ + "/" + path;
}

}  // namespace agent::copy
