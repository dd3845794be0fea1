#include "agent/copy/item_sender.h"

#include <exception>
#include <optional>
#include <utility>

#include "agent/copy/empty_source.h"
#include "agent/copy/resumption.h"
#include "agent/copy/steady_source.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str_format.h"

namespace agent::copy {

namespace {

/// Passes the engine's progress on.
class byte_counter_t final : public progress::progress_base_t {
  public:
    byte_counter_t(const copy_options_t& options, copy_report_t& report, copy_observer_t& observer)
        : options_(options), report_(report), observer_(observer) {}
    void OnProgress(std::uint64_t bytes) override {
        options_.remote.ThrowIfStopped();
        report_.bytes += bytes;
        observer_.OnBytes(bytes);
    }

  private:
    const copy_options_t& options_;
    copy_report_t& report_;
    copy_observer_t& observer_;
};

EItemKind item_kind(EEntryKind kind) {
    return kind == EEntryKind::eFile        ? EItemKind::eFile
           : kind == EEntryKind::eDirectory ? EItemKind::eDirectory
                                            : EItemKind::eLink;
}

sent_item_t describe(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& entry, const std::string& target) {
    sent_item_t sent;
    sent.kind = item_kind(entry.brief.kind);
    sent.shown = tree->Shown(entry.name);
    sent.target = target;
    sent.tree = tree;
    sent.entry = entry;
    return sent;
}

std::uint64_t& counter_of(copy_report_t& report, EItemKind kind) {
    switch (kind) {
        case EItemKind::eDirectory:
            return report.directories;
        case EItemKind::eLink:
            return report.links;
        case EItemKind::eHardLink:
            return report.hardLinks;
        default:
            return report.files;
    }
}

}  // namespace

item_sender_t::item_sender_t(const copy_options_t& options, item_sink_t& sink, copy_observer_t& observer,
                             link_keeper_t& links, bool groups)
    : options_(options),
      sink_(sink),
      observer_(observer),
      links_(links),
      groups_(groups),
      copy_(guid::guid_t::Create()),
      counter_(std::make_shared<byte_counter_t>(options, report_, observer)) {}

bool item_sender_t::SendEntry(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& entry,
                              const std::string& target) {
    return Send(describe(tree, entry, target), EWhen::eWithGroup, [&](std::vector<copy_note_t>& warnings) {
        return tree->Load(entry, target, {options_.blockSize}, warnings);
    });
}

void item_sender_t::MakeWay(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& directory,
                            const std::string& target) {
    sent_item_t sent = describe(tree, directory, target);
    sent.counts = false;
    Send(std::move(sent), EWhen::eAtOnce, [&](std::vector<copy_note_t>& warnings) {
        return tree->Load(directory, target, {options_.blockSize}, warnings);
    });
}

bool item_sender_t::SendSingle(const copy_source_t& source, const std::string& target) {
    sent_item_t sent;
    sent.shown = source.text;
    sent.target = target;
    return Send(std::move(sent), EWhen::eWithGroup, [&](std::vector<copy_note_t>&) {
        return LoadSingle(source, target, options_.blockSize, options_.remote);
    });
}

bool item_sender_t::SendName(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& entry,
                             const std::string& target, const std::string& first) {
    sent_item_t sent = describe(tree, entry, target);
    sent.kind = EItemKind::eHardLink;
    loaded_item_t loaded;
    loaded.item.kind = EItemKind::eHardLink;
    loaded.item.path = target;
    loaded.item.second = first;
    loaded.source = std::make_shared<empty_source_t>(sent.shown);
    try {
        return Put(sent, EWhen::eWithGroup, std::move(loaded), {}, nullptr);
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        SendAgainAsFile(sent, error.what());
        return true;
    }
}

bool item_sender_t::Send(sent_item_t sent, EWhen when, const load_function_t& load) {
    try {
        std::vector<copy_note_t> warnings;
        loaded_item_t loaded = load(warnings);
        std::shared_ptr<content_hasher_t> begun;
        if (IsResumable(sent, loaded)) {
            resumption_t resumption = Resume(sink_, *sent.tree, sent.entry, std::move(loaded), {options_.blockSize});
            loaded = std::move(resumption.loaded);
            begun = std::move(resumption.hasher);
        }
        return Put(sent, when, std::move(loaded), std::move(warnings), begun);
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        Lose(sent, error.what());
        return false;
    }
}

bool item_sender_t::IsResumable(const sent_item_t& sent, const loaded_item_t& loaded) const {
    return sent.kind == EItemKind::eFile && sent.tree && sent.tree->ReadsTwice() && loaded.size >= kResumableBytes &&
           options_.keepPartial.count() > 0;
}

bool item_sender_t::Put(sent_item_t sent, EWhen when, loaded_item_t loaded, std::vector<copy_note_t> warnings,
                        const std::shared_ptr<content_hasher_t>& begun) {
    const bool deferred = groups_ && when == EWhen::eWithGroup;
    Prepare(loaded.item, deferred);
    sent.bytes = loaded.size;
    const std::shared_ptr<content_hasher_t> hasher = Watch(sent, loaded, begun);
    SpareKept(loaded.item.startOffset);
    sink_.Put(loaded.item, loaded.source, loaded.size, options_.overwrite, counter_, warnings);
    if (loaded.hasChanged && loaded.hasChanged()) {
        warnings.push_back({sent.shown, util::str_format("File [%1] changed while it was read.", sent.shown)});
    }
    sent.counts = sent.counts && (warnings.empty() || !options_.strict);
    Warn(std::move(warnings));
    if (hasher) {
        sent.digest = hasher->Get();
    }
    if (deferred) {
        group_.Add(std::move(sent));
        CommitIfDue();
    } else {
        Settle(sent);
    }
    return true;
}

// What has to be seen of the content on its way.
std::shared_ptr<content_hasher_t> item_sender_t::Watch(const sent_item_t& sent, loaded_item_t& loaded,
                                                       const std::shared_ptr<content_hasher_t>& begun) const {
    if (loaded.hasChanged && (options_.verify || options_.strict)) {
        loaded.source = std::make_shared<steady_source_t>(loaded.source, loaded.hasChanged);
    }
    if (!options_.verify || sent.kind != EItemKind::eFile) {
        return nullptr;
    }
    auto hasher = begun ? begun : std::make_shared<content_hasher_t>();
    loaded.source = std::make_shared<hashed_source_t>(loaded.source, hasher);
    return hasher;
}

void item_sender_t::SpareKept(std::uint64_t bytes) {
    if (bytes != 0) {
        report_.resumedBytes += bytes;
        observer_.OnBytesSpared(bytes);
    }
}

void item_sender_t::Prepare(item_t& item, bool deferred) const {
    item.copy = copy_;
    item.unsynced = options_.durability == EDurability::eNone;
    item.deferred = deferred;
    item.entry = deferred ? group_.NextNumber() : 0;
    if (options_.numericOwner) {
        item.info.owner.name.clear();
        item.info.group.name.clear();
    }
}

void item_sender_t::CommitIfDue() {
    if (group_.IsDue()) {
        Commit();
    }
}

void item_sender_t::Commit() {
    const std::vector<sent_item_t> items = group_.Take();
    if (items.empty()) {
        return;
    }
    const std::vector<std::string> faults = TryCommit(items);
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (faults[i].empty()) {
            Settle(items[i]);
        } else {
            Lose(items[i], faults[i]);
        }
    }
}

// Why each of the items did not get its place; an empty text for one that did.
std::vector<std::string> item_sender_t::TryCommit(const std::vector<sent_item_t>& items) {
    std::vector<copy_note_t> warnings;
    try {
        std::vector<std::string> faults(items.size());
        for (const item_sink_t::lost_entry_t& lost : sink_.Commit(copy_, items.size(), warnings)) {
            if (lost.number < faults.size()) {
                faults[lost.number] = lost.text;
            }
        }
        Warn(std::move(warnings));
        return faults;
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        return std::vector<std::string>(items.size(), error.what());
    }
}

void item_sender_t::Settle(const sent_item_t& sent) {
    try {
        CheckReadsBack(sent);
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        report_.failed.push_back({sent.shown, error.what()});
        return;
    }
    if (sent.counts) {
        ++counter_of(report_, sent.kind);
        observer_.OnItemDone(sent.shown);
    }
}

void item_sender_t::CheckReadsBack(const sent_item_t& sent) {
    if (sent.digest && sink_.Digest(sent.target) != sent.digest) {
        throw exc::CRuntimeExc("[%1] was written, but reads back differently.", sink_.Shown(sent.target));
    }
}

void item_sender_t::Lose(const sent_item_t& sent, const std::string& text) {
    if (sent.kind == EItemKind::eHardLink) {
        SendAgainAsFile(sent, text);
        return;
    }
    if (link_keeper_t::HasOthers(sent.entry.brief)) {
        links_.Drop(sent.entry.brief, sent.target);
    }
    report_.failed.push_back({sent.shown, text});
}

// The file system of the receiver may know no hard links, or the first name may have been lost.
void item_sender_t::SendAgainAsFile(const sent_item_t& name, const std::string& text) {
    const auto load = [&](std::vector<copy_note_t>& warnings) {
        warnings.push_back({name.shown, util::str_format("[%1] becomes a file of its own: %2", name.shown, text)});
        return name.tree->Load(name.entry, name.target, {options_.blockSize}, warnings);
    };
    if (Send(describe(name.tree, name.entry, name.target), EWhen::eAtOnce, load)) {
        links_.Keep(name.entry.brief, {name.target, std::nullopt});
    }
}

void item_sender_t::Warn(std::vector<copy_note_t> warnings) {
    std::vector<copy_note_t>& notes = options_.strict ? report_.failed : report_.warnings;
    for (copy_note_t& warning : warnings) {
        notes.push_back(std::move(warning));
    }
}

}  // namespace agent::copy
