#include "agent/staging/partial_store.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "agent/query/content_digest.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

namespace {

constinit logging::log_section_t g_log("agent");

constexpr std::chrono::hours kLookEvery{1};
/// How long whoever wants to go on waits for the transfer before: one whose peer was killed works a moment longer.
constexpr std::chrono::seconds kLetGo{5};

std::string PlaceOf(const std::string& key) {
    return std::string(kPartialFolder) + "/" + key;
}

std::chrono::system_clock::time_point ModifiedAt(const struct stat& found) {
    return std::chrono::system_clock::time_point(std::chrono::seconds(found.st_mtim.tv_sec));
}

/// Whether `fd` is still what `name` in `folder` leads to: its last user may have moved it away before we had the lock.
bool IsStillThere(int fd, const confined_root_t& folder, const std::string& name) {
    struct stat held {};
    const auto found = folder.TryStat(name);
    return found && posix::sys().fstat(fd, &held) == 0 && held.st_dev == found->st_dev && held.st_ino == found->st_ino;
}

}  // namespace

bool IsPartialKept(const confined_root_t& folder, const journal_note_t& note, std::chrono::seconds keep) {
    const auto found = folder.TryStat(PlaceOf(note.name));
    return found && util::clock().SystemNow() - ModifiedAt(*found) < keep;
}

partial_store_t::partial_store_t(const confined_root_t& folder, std::chrono::seconds keep, EJournal journal)
    : folder_(folder), keep_(keep), journal_(journal), lookedAt_(util::clock().SteadyNow()) {}

std::string partial_store_t::KeyOf(const std::string& path, std::uint64_t size, const util::SFileTime& modified) {
    std::string text = std::to_string(size) + " " + std::to_string(modified.seconds) + " " +
                       std::to_string(modified.nanoseconds) + " " + path;
    constexpr char digits[] = "0123456789abcdef";
    std::string key;
    for (const std::uint8_t byte : digest::ComputeBlockDigest(std::as_bytes(std::span(text)))) {
        key += digits[byte >> 4];
        key += digits[byte & 15];
    }
    return key;
}

std::unique_ptr<partial_file_t> partial_store_t::Begin(const std::string& key) {
    if (keep_.count() == 0) {
        return nullptr;
    }
    DropOld();
    const synch::lock_t lock(mutex_);
    if (folder_.TryStat(PlaceOf(key))) {
        auto partial = TryOpen(key);
        if (partial) {
            partial->GetFile()->SetSize(0);
        }
        return partial;
    }
    return Make(key);
}

std::unique_ptr<partial_file_t> partial_store_t::Continue(const std::string& key, std::uint64_t length,
                                                          std::uint64_t& kept) {
    kept = 0;
    if (!folder_.TryStat(PlaceOf(key))) {
        return nullptr;
    }
    auto partial = TryOpen(key);
    if (!partial) {
        return nullptr;
    }
    kept = partial->GetFile()->GetSize();
    if (kept < length) {
        return nullptr;
    }
    partial->GetFile()->SetSize(length);
    return partial;
}

std::optional<partial_t> partial_store_t::Find(const std::string& key) const {
    const auto partial = OpenWhenFree(key);
    if (!partial || partial->GetFile()->GetSize() == 0) {
        return std::nullopt;
    }
    const auto content = query::DigestFile(folder_, PlaceOf(key));
    return content ? std::optional(partial_t{content->size, content->digest}) : std::nullopt;
}

std::shared_ptr<const confined_root_t> partial_store_t::OpenFolder() const {
    return std::make_shared<const confined_root_t>(folder_.OpenDirectory(kPartialFolder), folder_.Shown(kPartialFolder),
                                                   EStagingFolder::eOrdinary);
}

std::unique_ptr<partial_file_t> partial_store_t::TryOpen(const std::string& key) const {
    const auto folder = OpenFolder();
    constexpr int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    posix::unique_fd_t fd(posix::sys().openat(folder->GetDescriptor(), key.c_str(), flags, 0));
    if (!fd) {
        throw posix::errno_exc_t("Failed to open file [%1]", folder->Shown(key), errno);
    }
    if (posix::sys().flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || !IsStillThere(fd.get(), *folder, key)) {
        return nullptr;
    }
    auto file = std::make_shared<posix::posix_file_t>(folder->Shown(key), std::move(fd));
    return std::make_unique<partial_file_t>(folder, key, std::move(file));
}

std::unique_ptr<partial_file_t> partial_store_t::OpenWhenFree(const std::string& key) const {
    const auto until = util::clock().SteadyNow() + kLetGo;
    while (folder_.TryStat(PlaceOf(key))) {
        auto partial = TryOpen(key);
        if (partial || util::clock().SteadyNow() >= until) {
            return partial;
        }
        util::clock().SleepFor(util::kWaitSlice, {});
    }
    return nullptr;
}

std::unique_ptr<partial_file_t> partial_store_t::Make(const std::string& key) {
    AppendToJournal(folder_, {EJournalWord::ePartial, key});
    if (!folder_.TryStat(kPartialFolder)) {
        posix::sys().mkdirat(folder_.GetDescriptor(), kPartialFolder, 0700);
    }
    const auto folder = OpenFolder();
    auto file = folder->CreateFile(key);
    if (posix::sys().flock(file->GetDescriptor(), LOCK_EX | LOCK_NB) != 0) {
        return nullptr;
    }
    return std::make_unique<partial_file_t>(folder, key, std::move(file));
}

void partial_store_t::DropOld() {
    const synch::lock_t lock(mutex_);
    const auto now = util::clock().SteadyNow();
    if (now - lookedAt_ < kLookEvery) {
        return;
    }
    lookedAt_ = now;
    std::vector<journal_note_t> notes = ReadJournal(folder_);
    for (const journal_note_t& note : notes) {
        const std::string place = PlaceOf(note.name);
        if (note.word != EJournalWord::ePartial || !folder_.TryStat(place) || IsPartialKept(folder_, note, keep_)) {
            continue;
        }
        if (const auto partial = TryOpen(note.name)) {
            g_log.info("Removed [%1], which was kept long enough.", folder_.Shown(place));
            partial->Remove();
        }
    }
    if (journal_ == EJournal::eOurs) {
        std::erase_if(notes, [&](const journal_note_t& note) {
            return note.word == EJournalWord::ePartial && !folder_.TryStat(PlaceOf(note.name));
        });
        RewriteJournal(folder_, notes);
    }
}

}  // namespace agent
