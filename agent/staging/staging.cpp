#include "agent/staging/staging.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "agent/staging/clear_staging.h"
#include "agent/staging/staging_journal.h"
#include "agent/staging/staging_names.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/clock.h"

namespace agent {

namespace {

constinit logging::log_section_t g_log("agent");

/// A process that leaves may remove the folder between our opening and our locking it; then we start over.
constexpr int kMaxTries = 32;

const std::string& FolderName() {
    static const std::string name(kStagingFolder);
    return name;
}

bool IsSameObject(const struct stat& left, const struct stat& right) noexcept {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

/// Whether `fd` is still what `name` in `dir` leads to.
bool IsStillThere(int fd, int dir, const char* name) {
    struct stat held {};
    struct stat found {};
    return posix::sys().fstat(fd, &held) == 0 && posix::sys().fstatat(dir, name, &found, AT_SYMLINK_NOFOLLOW) == 0 &&
           IsSameObject(held, found);
}

posix::unique_fd_t OpenFolder(const confined_root_t& root) {
    const std::string shown = root.Shown(kStagingFolder);
    const int top = root.GetDescriptor();
    if (posix::sys().mkdirat(top, FolderName().c_str(), 0700) != 0 && errno != EEXIST) {
        throw posix::errno_exc_t("Failed to create staging folder [%1]", shown, errno);
    }
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    posix::unique_fd_t folder(posix::sys().openat(top, FolderName().c_str(), flags, 0));
    struct stat found {};
    if ((!folder && errno != ENOENT) || (folder && posix::sys().fstat(folder.get(), &found) != 0)) {
        throw posix::errno_exc_t("Failed to open staging folder [%1]", shown, errno);
    }
    if (folder && found.st_uid != ::geteuid()) {
        throw exc::CRuntimeExc("Staging folder [%1] belongs to another user.", shown);
    }
    if (folder && (found.st_mode & 07777) != 0700 && posix::sys().fchmod(folder.get(), 0700) != 0) {
        throw posix::errno_exc_t("Failed to close staging folder [%1] to others", shown, errno);
    }
    return folder;
}

/// Opens the lock in the folder; none when the folder is on its way out.
posix::unique_fd_t OpenLock(const confined_root_t& root, int folder) {
    constexpr int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    posix::unique_fd_t lock(posix::sys().openat(folder, kStagingLockName, flags, 0600));
    if (!lock && errno != ENOENT) {
        throw posix::errno_exc_t("Failed to open the lock of staging folder [%1]", root.Shown(kStagingFolder), errno);
    }
    return lock;
}

}  // namespace

staging_t::staging_t(std::shared_ptr<const confined_root_t> root, staging_options_t options)
    : root_(std::move(root)), options_(options) {
    for (int tries = 0; !TryTake(); ++tries) {
        if (tries == kMaxTries) {
            throw exc::CRuntimeExc("Staging folder [%1] is in use by another process.", root_->Shown(kStagingFolder));
        }
    }
}

staging_t::~staging_t() {
    try {
        RemoveFolder();
    } catch (const std::exception& error) {
        g_log.warn("Failed to remove the staging folder.", error);
    }
}

bool staging_t::TryTake() {
    posix::unique_fd_t folder = OpenFolder(*root_);
    if (!folder) {
        return false;
    }
    posix::unique_fd_t lock = OpenLock(*root_, folder.get());
    if (!lock) {
        return false;
    }
    const bool alone = Lock(lock.get(), LOCK_EX | LOCK_NB);
    if (!alone && (options_.use == EStagingUse::eAlone || !Lock(lock.get(), LOCK_SH | LOCK_NB))) {
        if (options_.use == EStagingUse::eAlone) {
            throw exc::CRuntimeExc("Staging folder [%1] is in use by another process.", root_->Shown(kStagingFolder));
        }
        // Either a server has it, or another copy is just clearing it.
        util::clock().SleepFor(util::kWaitSlice, {});
        return false;
    }
    if (!IsStillThere(lock.get(), folder.get(), kStagingLockName) ||
        !IsStillThere(folder.get(), root_->GetDescriptor(), FolderName().c_str())) {
        return false;
    }
    lock_ = std::move(lock);
    return TryBegin(std::move(folder), alone);
}

bool staging_t::TryBegin(posix::unique_fd_t folder, bool alone) {
    folder_ =
        std::make_unique<confined_root_t>(std::move(folder), root_->Shown(kStagingFolder), EStagingFolder::eOrdinary);
    try {
        if (alone) {
            ClearStaging(*folder_, options_.keepPartial);
            WarnOfForeignNames(*folder_);
            // Who gets it alone in between finds an empty folder.
            if (options_.use == EStagingUse::eShared && !Lock(lock_.get(), LOCK_SH | LOCK_NB)) {
                return false;
            }
        }
        BeginRun();
        partials_ = std::make_unique<partial_store_t>(*folder_, options_.keepPartial,
                                                      options_.use == EStagingUse::eAlone
                                                          ? partial_store_t::EJournal::eOurs
                                                          : partial_store_t::EJournal::eAppendOnly);
        return true;
    } catch (const posix::errno_exc_t& error) {
        if (error.GetErrno() == ENOENT) {
            return false;  // somebody removed it meanwhile
        }
        throw;
    }
}

std::optional<partial_t> staging_t::FindPartial(const std::string& path, std::uint64_t size,
                                                const util::SFileTime& modified) const {
    return partials_->Find(partial_store_t::KeyOf(path, size, modified));
}

void staging_t::BeginRun() {
    const std::string name = NewStagingName();
    AppendToJournal(*folder_, {EJournalWord::eRun, name});
    folder_->MakeDirectory(name);
    run_ = std::make_unique<confined_root_t>(folder_->OpenDirectory(name), folder_->Shown(name),
                                             EStagingFolder::eOrdinary);
    runName_ = name;
}

bool staging_t::Lock(int fd, int operation) const {
    while (posix::sys().flock(fd, operation) != 0) {
        if (errno == EWOULDBLOCK) {
            return false;
        }
        if (errno != EINTR) {
            throw posix::errno_exc_t("Failed to lock staging folder [%1]", root_->Shown(kStagingFolder), errno);
        }
    }
    return true;
}

void staging_t::RemoveFolder() const {
    posix::sys().unlinkat(folder_->GetDescriptor(), runName_.c_str(), AT_REMOVEDIR);
    if (!Lock(lock_.get(), LOCK_EX | LOCK_NB)) {
        return;  // the last of those who share it clears and removes it
    }
    ClearStaging(*folder_, options_.keepPartial);
    const std::vector<std::string> names = folder_->ListTop(EOrder::eRaw);
    if (names.size() == 1 && names.front() == kStagingLockName) {
        folder_->RemoveFile(kStagingLockName);
        posix::sys().unlinkat(root_->GetDescriptor(), FolderName().c_str(), AT_REMOVEDIR);
    }
}

}  // namespace agent
