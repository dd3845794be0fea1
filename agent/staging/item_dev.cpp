#include "agent/staging/item_dev.h"

#include <utility>

#include "agent/meta/item_meta.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent {

namespace {

std::shared_ptr<item_warnings_t> CollectorOfThread() {
    auto current = warning_scope_t::Current();
    return current ? current : std::make_shared<item_warnings_t>();
}

}  // namespace

item_dev_t::item_dev_t(std::shared_ptr<staging_t> staging, item_t item, EReplace replace, group_slot_t slot)
    : staging_(std::move(staging)),
      item_(std::move(item)),
      replace_(replace),
      slot_(std::move(slot)),
      warnings_(CollectorOfThread()),
      keepsWarnings_(warning_scope_t::Current() == nullptr) {}

item_dev_t::~item_dev_t() {
    if (keepsWarnings_ && !warningsTaken_) {
        for (const item_warning_t& warning : warnings_->Get()) {
            Report(nullptr, warning);
        }
    }
}

std::vector<brannock::transmission::entry_report_t> item_dev_t::TakeEntryReports() {
    std::vector<brannock::transmission::entry_report_t> reports;
    if (keepsWarnings_ && !std::exchange(warningsTaken_, true)) {
        for (const item_warning_t& warning : warnings_->Get()) {
            reports.push_back({static_cast<std::uint32_t>(warning.kind), 0, warning.path, warning.text});
        }
    }
    return reports;
}

std::string item_dev_t::GetDisplayName() {
    return Shown();
}

void item_dev_t::Write(std::shared_ptr<io::area::area_t> /*area*/) {
    throw exc::CNotImplExc("item_dev_t", "Write");
}

void item_dev_t::Write(std::shared_ptr<io::area::IArea> area) {
    if (area->GetBlockCount() != 0 || area->GetSize() != 0) {
        throw exc::CRuntimeExc("An item of kind [%1] takes no content: [%2].", NameOfKind(item_.kind), Shown());
    }
}

void item_dev_t::Defer(std::unique_ptr<staged_entry_t> staged, std::shared_ptr<posix::posix_file_t> file) {
    item_t kept = item_;
    if (staged) {
        kept.info = {};  // applied already
    }
    slot_.group->Put({std::move(kept), replace_, std::move(staged), std::move(file)}, slot_.ticket);
}

void item_dev_t::SyncTouched(touched_directories_t& touched) const {
    if (Sync() == ESync::eNo) {
        return;
    }
    if (const auto failures = touched.Sync(Root()); !failures.empty()) {
        throw exc::CRuntimeExc("%1", failures.front().text);
    }
}

void item_dev_t::ApplyAttributes(int fd) const {
    ApplyMeta(fd, item_.info, Shown(), warnings_);
}

void item_dev_t::ApplyLinkAttributes(int dirFd, const std::string& name) const {
    ApplyLinkMeta(dirFd, name, item_.info, Shown(), warnings_);
}

}  // namespace agent
