#include "agent/staging/copy_group.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace agent {

namespace {

/// What an entry's texts and attributes take, nearly; a file's and a link's attributes are applied and gone.
std::size_t BytesOf(const group_entry_t& entry) noexcept {
    const item_t& item = entry.item;
    std::size_t bytes = sizeof(item_t) + item.path.size() + item.second.size() + item.info.owner.name.size() +
                        item.info.group.name.size() + item.info.nfs4Acl.size() + entry.fault.size();
    for (const util::SExtendedAttribute& attribute : item.info.attributes) {
        bytes += sizeof attribute + attribute.name.size() + attribute.value.size();
    }
    for (const item_warning_t& warning : entry.warnings) {
        bytes += sizeof warning + warning.path.size() + warning.text.size();
    }
    return bytes;
}

}  // namespace

copy_group_t::copy_group_t(posix::unique_fd_t fileSystem) : fileSystem_(std::move(fileSystem)) {}

std::uint64_t copy_group_t::NewTicket() {
    const synch::lock_t lock(mutex_);
    return ++tickets_;
}

void copy_group_t::Put(group_entry_t entry, std::uint64_t ticket) {
    kept_t replaced;  // what it staged is removed without the lock
    const synch::lock_t lock(mutex_);
    kept_t& kept = kept_[entry.item.entry];
    if (kept.ticket > ticket) {
        return;
    }
    const std::size_t bytes = BytesOf(entry);
    if (bytes > kMaxBytes - (bytes_ - kept.bytes)) {
        const std::string copy = entry.item.copy.ToAStr();
        if (kept.ticket == 0) {
            kept_.erase(entry.item.entry);
        }
        throw exc::CRuntimeExc("The group of copy [%1] has more than [%2] bytes of paths and attributes.", copy,
                               kMaxBytes);
    }
    bytes_ += bytes - kept.bytes;
    if (!small_) {
        entry.file.reset();
    }
    openFiles_ -= kept.entry.file ? 1U : 0U;
    openFiles_ += entry.file ? 1U : 0U;
    replaced = std::exchange(kept, kept_t{std::move(entry), ticket, bytes});
    if (openFiles_ > kMaxOpenFiles) {
        CloseFiles();
    }
}

void copy_group_t::CloseFiles() {
    for (auto& [number, kept] : kept_) {
        kept.entry.file.reset();
    }
    openFiles_ = 0;
    small_ = false;
}

copy_group_t::entries_t copy_group_t::Take() {
    const synch::lock_t lock(mutex_);
    entries_t entries;
    for (auto& [number, kept] : std::exchange(kept_, {})) {
        entries.emplace(number, std::move(kept.entry));
    }
    return entries;
}

bool copy_group_t::IsSmall() const {
    const synch::lock_t lock(mutex_);
    return small_;
}

}  // namespace agent
