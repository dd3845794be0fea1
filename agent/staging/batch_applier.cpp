#include "agent/staging/batch_applier.h"

#include <exception>
#include <utility>

#include "agent/root/name_rules.h"
#include "brannock/transmission/entry_reports.h"
#include "mirrowen/logging/log_exc.h"

namespace agent {

namespace {

/// What the commit needs of an item whose attributes were applied, or that failed.
item_t Bare(const item_t& item) {
    item_t bare;
    bare.kind = item.kind;
    bare.copy = item.copy;
    bare.path = item.path;
    bare.entry = item.entry;
    bare.deferred = item.deferred;
    bare.unsynced = item.unsynced;
    return bare;
}

void WritePieces(posix::posix_file_t& file, const batch_entry_t& entry) {
    std::uint64_t position = 0;
    for (const batch_piece_t& piece : entry.pieces) {
        if (piece.offset != position) {
            file.SeekFromBegin(piece.offset);
        }
        file.Write(piece.data.data(), piece.data.size());
        position = piece.offset + piece.data.size();
    }
    // A hole at the end; and the storage takes an empty file, too, only when something was done to it.
    if (position != entry.size || entry.size == 0) {
        file.SetSize(entry.size);
    }
}

}  // namespace

batch_applier_t::batch_applier_t(std::shared_ptr<staging_t> staging, group_slot_t place, EReplace replace,
                                 util::EOwnerSource owner)
    : staging_(std::move(staging)),
      place_(std::move(place)),
      replace_(replace),
      owner_(owner),
      inherited_(FindInherited(staging_->GetFolder().GetDescriptor())) {}

void batch_applier_t::Apply(batch_entry_t& entry) const noexcept {
    try {
        try {
            place_.group->Put(Stage(entry), place_.ticket);
        } catch (const std::exception& error) {
            PutFault(entry.item, error.what());
        }
    } catch (const std::exception& error) {
        logging::LogExc(error, "An entry of a batch was lost.");
    }
}

group_entry_t batch_applier_t::Stage(batch_entry_t& entry) const {
    item_t& item = entry.item;
    CheckName(item.path);
    if (owner_ == util::EOwnerSource::eNumber) {
        item.info.owner.name.clear();
        item.info.group.name.clear();
    }
    if (item.kind == EItemKind::eDirectory) {
        return {.item = item, .replace = replace_, .staged = nullptr, .file = nullptr};
    }
    const auto warnings = std::make_shared<item_warnings_t>();
    group_entry_t staged = item.kind == EItemKind::eLink ? StageLink(item, warnings) : StageFile(entry, warnings);
    staged.warnings = warnings->Get();
    return staged;
}

group_entry_t batch_applier_t::StageFile(const batch_entry_t& entry,
                                         const std::shared_ptr<item_warnings_t>& warnings) const {
    auto staged = std::make_unique<staged_entry_t>(staging_);
    auto file = staging_->GetFolder().CreateFile(staged->GetName());
    WritePieces(*file, entry);
    ApplyMeta(file->GetDescriptor(), entry.item.info, staging_->GetRoot().Shown(entry.item.path), warnings, inherited_);
    return {.item = Bare(entry.item), .replace = replace_, .staged = std::move(staged), .file = std::move(file)};
}

group_entry_t batch_applier_t::StageLink(const item_t& item, const std::shared_ptr<item_warnings_t>& warnings) const {
    auto staged = std::make_unique<staged_entry_t>(staging_);
    const confined_root_t& folder = staging_->GetFolder();
    folder.MakeLink(item.second, staged->GetName());
    ApplyLinkMeta(folder.GetDescriptor(), staged->GetName(), item.info, staging_->GetRoot().Shown(item.path), warnings);
    return {.item = Bare(item), .replace = replace_, .staged = std::move(staged), .file = nullptr};
}

void batch_applier_t::PutFault(const item_t& item, const std::string& fault) const {
    place_.group->Put({.item = Bare(item),
                       .replace = replace_,
                       .staged = nullptr,
                       .file = nullptr,
                       .fault = fault.substr(0, brannock::transmission::kMaxReportText)},
                      place_.ticket);
}

}  // namespace agent
