#include "agent/staging/commit_dev.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "agent/staging/place_item.h"
#include "agent/staging/report_kind.h"
#include "mirrowen/exc/exception.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

namespace {

constinit logging::log_section_t g_log("agent");

}  // namespace

commit_dev_t::commit_dev_t(std::shared_ptr<staging_t> staging, std::shared_ptr<copy_groups_t> groups, item_t item)
    : item_dev_t(std::move(staging), std::move(item), EReplace::eNo), groups_(std::move(groups)) {}

commit_dev_t::~commit_dev_t() {
    if (!reportsTaken_) {
        for (const auto& failure : failures_) {
            g_log.warn("An entry of a committed copy failed: [%1]: %2", failure.path, failure.text);
        }
        for (const auto& warning : entryWarnings_) {
            g_log.warn(warning.text);
        }
    }
}

void commit_dev_t::Finish(std::shared_ptr<synch::completion_port_t> /*port*/) {
    group_ = groups_->Take(item_.copy);
    copy_group_t::entries_t entries = TakeEntries();
    if (group_ && Sync() == ESync::eYes) {
        SyncStaged(*group_, entries);
    }
    touched_directories_t touched;
    PlaceAll(entries, touched);
    if (Sync() == ESync::eYes) {
        SyncPlaced(entries, touched);
    }
}

copy_group_t::entries_t commit_dev_t::TakeEntries() {
    copy_group_t::entries_t entries;
    if (group_) {
        entries = group_->Take();
    }
    // What lies beyond is an item whose acknowledgement was lost: its sender takes it for failed.
    entries.erase(entries.lower_bound(item_.entry), entries.end());
    if (entries.size() != item_.entry) {
        throw exc::CRuntimeExc("Copy [%1] has [%2] of [%3] entries to commit.", item_.copy.ToAStr(), entries.size(),
                               item_.entry);
    }
    return entries;
}

void commit_dev_t::SyncStaged(const copy_group_t& group, const copy_group_t::entries_t& entries) const {
    if (!group.IsSmall()) {
        if (posix::sys().syncfs(group.GetFileSystem()) != 0) {
            throw posix::errno_exc_t("Failed to sync [%1]", Root().Shown({}), errno);
        }
        return;
    }
    for (const auto& [number, entry] : entries) {
        if (entry.file) {
            entry.file->Flush();
        }
    }
}

void commit_dev_t::PlaceAll(copy_group_t::entries_t& entries, touched_directories_t& touched) {
    for (auto& [number, entry] : entries) {
        try {
            Place(entry, touched);
        } catch (const std::exception& error) {
            Fail(entry.item, error.what());
        }
        TakeWarnings(entry);
        entry.staged.reset();
    }
}

void commit_dev_t::Place(group_entry_t& entry, touched_directories_t& touched) const {
    const item_t& item = entry.item;
    if (!entry.fault.empty()) {
        throw exc::CRuntimeExc("%1", entry.fault);
    }
    switch (item.kind) {
        case EItemKind::eDirectory:
            MakeDirectory(entry, touched);
            break;
        case EItemKind::eHardLink:
            PlaceHardLink(staging_, item, entry.replace, touched, item.entry);
            break;
        default:
            entry.staged->Commit(item.path, entry.replace, touched, item.entry);
    }
}

// The sender wants to know which entry a warning is about.
void commit_dev_t::MakeDirectory(group_entry_t& entry, touched_directories_t& touched) const {
    const auto warnings = std::make_shared<item_warnings_t>();
    PlaceDirectory(Root(), entry.item, entry.replace, Sync(), warnings, touched, entry.item.entry);
    entry.warnings = warnings->Get();
}

void commit_dev_t::SyncPlaced(const copy_group_t::entries_t& entries, touched_directories_t& touched) {
    for (const touched_directories_t::failure_t& failure : touched.Sync(Root())) {
        for (const std::uint64_t number : failure.entries) {
            Fail(entries.at(number).item, failure.text);
        }
    }
}

void commit_dev_t::Fail(const item_t& item, const std::string& text) {
    const bool known = std::any_of(failures_.begin(), failures_.end(),
                                   [&](const auto& failure) { return failure.entry == item.entry; });
    if (!known) {
        failures_.push_back({kEntryFailed, item.entry, Root().Shown(item.path), text});
    }
}

void commit_dev_t::TakeWarnings(group_entry_t& entry) {
    for (item_warning_t& warning : std::exchange(entry.warnings, {})) {
        entryWarnings_.push_back({static_cast<std::uint32_t>(warning.kind), entry.item.entry, std::move(warning.path),
                                  std::move(warning.text)});
    }
}

std::vector<brannock::transmission::entry_report_t> commit_dev_t::TakeEntryReports() {
    std::vector<brannock::transmission::entry_report_t> reports;
    if (!std::exchange(reportsTaken_, true)) {
        reports = failures_;
        reports.insert(reports.end(), entryWarnings_.begin(), entryWarnings_.end());
    }
    for (auto& warning : item_dev_t::TakeEntryReports()) {
        reports.push_back(std::move(warning));
    }
    return reports;
}

}  // namespace agent
