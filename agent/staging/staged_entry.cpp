#include "agent/staging/staged_entry.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "agent/staging/staging_names.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

namespace {

constinit logging::log_section_t g_log("agent");

}  // namespace

staged_entry_t::staged_entry_t(std::shared_ptr<staging_t> staging)
    : staging_(std::move(staging)), name_(NewStagingName()) {}

staged_entry_t::~staged_entry_t() {
    if (committed_) {
        return;
    }
    try {
        if (staging_->GetFolder().TryStat(name_)) {
            staging_->GetFolder().RemoveFile(name_);
        }
    } catch (const std::exception& error) {
        g_log.warn("Failed to remove an unfinished item from the staging folder.", error);
    }
}

void staged_entry_t::Commit(std::string_view target, EReplace replace, ESync sync) {
    const confined_root_t& root = staging_->GetRoot();
    const std::string shown = root.Shown(target);
    if (sync == ESync::eNo) {
        std::vector<std::string> made;
        Rename(root.OpenParent(target, made), replace, shown);
        return;
    }
    const place_t place = root.OpenParent(target, EParents::eMake);
    // Opened before the rename: after it nothing but the fsync itself may fail.
    const posix::unique_fd_t directory = OpenForSync(place, shown);
    Rename(place, replace, shown);
    SyncDescriptor(directory.get(), shown);
}

void staged_entry_t::Commit(std::string_view target, EReplace replace, touched_directories_t& touched,
                            std::uint64_t number) {
    const confined_root_t& root = staging_->GetRoot();
    std::vector<std::string> made;
    const place_t place = root.OpenParent(target, made);
    touched.Add(target, made, number);
    Rename(place, replace, root.Shown(target));
}

void staged_entry_t::Rename(const place_t& place, EReplace replace, const std::string& shown) {
    RenameAt(staging_->GetFolder().GetDescriptor(), name_, place.parent.get(), place.last, replace, shown);
    committed_ = true;
}

void CheckTarget(const confined_root_t& root, std::string_view target, EReplace replace) {
    const std::optional<struct stat> found = root.TryStat(target);
    if (!found) {
        return;
    }
    if (replace == EReplace::eNo) {
        ThrowExists(root.Shown(target));
    }
    if (S_ISDIR(found->st_mode)) {
        throw exc::CRuntimeExc("[%1] is a directory and is not replaced.", root.Shown(target));
    }
}

}  // namespace agent
