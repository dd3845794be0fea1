#include "agent/staging/file_dev.h"

#include <exception>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/syscalls.h"

namespace agent {

file_dev_t::file_dev_t(std::shared_ptr<staging_t> staging, item_t item, std::uint64_t size, EReplace replace,
                       group_slot_t slot)
    : item_dev_t(std::move(staging), std::move(item), replace, std::move(slot)),
      size_(size),
      entry_(std::make_unique<staged_entry_t>(staging_)) {
    CheckTarget(Root(), item_.path, replace_);
    OpenPartial();
    if (!partial_) {
        CreateStaged();
    }
    writer_ = std::make_unique<sparse_writer_t>(file_, item_.startOffset);
}

file_dev_t::~file_dev_t() = default;

void file_dev_t::OpenPartial() {
    const std::string key = partial_store_t::KeyOf(item_.path, item_.info.size, item_.info.modificationTime);
    if (item_.startOffset != 0) {
        std::uint64_t kept = 0;
        partial_ = staging_->GetPartials().Continue(key, item_.startOffset, kept);
        if (!partial_) {
            throw exc::CRuntimeExc("Item [%1] starts at [%2], but [%3] bytes are kept.", Shown(), item_.startOffset,
                                   kept);
        }
    } else if (item_.resumable) {
        partial_ = staging_->GetPartials().Begin(key);
    }
    if (partial_) {
        file_ = partial_->GetFile();
    }
}

void file_dev_t::CreateStaged() {
    file_ = staging_->GetFolder().CreateFile(entry_->GetName());
    // A size that no file can have is refused before anything is sent.
    file_->SetSize(size_);
}

void file_dev_t::Discard() noexcept {
    if (partial_) {
        partial_->Remove();
    } else {
        static_cast<void>(posix::sys().ftruncate(file_->GetDescriptor(), 0));
    }
}

void file_dev_t::Write(std::shared_ptr<io::area::IArea> area) {
    try {
        writer_->Write(*area);
    } catch (const std::exception&) {
        // The sender hears of it before this object goes; what it sends next may need the room.
        Discard();
        throw;
    }
}

void file_dev_t::Finish(std::shared_ptr<synch::completion_port_t> /*port*/) {
    try {
        CheckSize();
        writer_->Finish();
        Stage();
    } catch (const std::exception&) {
        Discard();
        throw;
    }
    ApplyAttributes(file_->GetDescriptor());
    if (IsDeferred()) {
        Defer(std::move(entry_), file_);
        return;
    }
    if (Sync() == ESync::eYes) {
        file_->Flush();
    }
    entry_->Commit(item_.path, replace_, Sync());
}

/// From here on a partial file is as any other: it gets its name or goes.
void file_dev_t::Stage() {
    if (partial_) {
        partial_->MoveTo(staging_->GetFolder(), entry_->GetName());
        partial_.reset();
    }
}

void file_dev_t::CheckSize() const {
    const std::uint64_t written = writer_->GetPosition();
    if (size_ != 0 && written != size_) {
        throw exc::CRuntimeExc("Item [%1] ended after [%2] bytes, but [%3] were declared.", Shown(), written, size_);
    }
}

}  // namespace agent
