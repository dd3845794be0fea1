#include "agent/copy/item_sender.h"

#include <exception>
#include <optional>
#include <utility>

#include "agent/copy/empty_source.h"
#include "agent/copy/resumption.h"
#include "agent/copy/watch_content.h"
#include "agent/copy/whole_content.h"
#include "mirrowen/util/str_format.h"

namespace agent::copy {

namespace {

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

}  // namespace

item_sender_t::item_sender_t(const copy_options_t& options, item_sink_t& sink, copy_observer_t& observer,
                             link_keeper_t& links, gathering_t gathering)
    : options_(options),
      sink_(sink),
      links_(links),
      account_(options, sink, observer),
      groups_(options, sink, gathering) {}

item_sender_t::~item_sender_t() = default;

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
    outgoing_t item;
    item.sent = describe(tree, entry, target);
    item.sent.kind = EItemKind::eHardLink;
    const sent_item_t name = item.sent;
    item.loaded.item.kind = EItemKind::eHardLink;
    item.loaded.item.path = target;
    item.loaded.item.second = first;
    item.loaded.source = std::make_shared<empty_source_t>(name.shown);
    try {
        Put(item);
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        SendAgainAsFile(name, error.what());
        return true;
    }
    CommitIfDue();
    return true;
}

bool item_sender_t::Send(sent_item_t sent, EWhen when, const load_function_t& load) {
    outgoing_t item;
    item.sent = std::move(sent);
    item.when = when;
    try {
        item.loaded = load(item.warnings);
        if (IsResumable(item)) {
            Continue(item);
        }
        Put(item);
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        Lose(item.sent, error.what());
        return false;
    }
    CommitIfDue();
    return true;
}

bool item_sender_t::IsResumable(const outgoing_t& item) const {
    const sent_item_t& sent = item.sent;
    return sent.kind == EItemKind::eFile && sent.tree && sent.tree->ReadsTwice() &&
           item.loaded.size >= kResumableBytes && options_.keepPartial.count() > 0;
}

void item_sender_t::Continue(outgoing_t& item) {
    resumption_t resumption =
        Resume(sink_, *item.sent.tree, item.sent.entry, std::move(item.loaded), {options_.blockSize});
    item.loaded = std::move(resumption.loaded);
    item.hasher = std::move(resumption.hasher);
}

void item_sender_t::Put(outgoing_t& item) {
    item.sent.bytes = item.loaded.size;
    // Only what can be read once more goes into a batch.
    if (item.when == EWhen::eWithGroup && item.sent.tree &&
        groups_.TakesIntoBatch(item.loaded.item, item.loaded.size)) {
        Pack(item);
    } else {
        PutAlone(item);
    }
}

// All of it is read before any of it is packed: an item that fails leaves no trace, and its number goes to the next.
void item_sender_t::Pack(outgoing_t& item) {
    Prepare(item, true);
    const whole_content_t content(*item.loaded.source, item.loaded.size);
    groups_.Pack(item.loaded.item, content, item.loaded.size);
    if (item.loaded.size != 0) {
        account_.Progress()->OnProgress(item.loaded.size);
    }
    Note(item);
    groups_.Add(std::move(item.sent));
}

// The sink is this thread's alone while no job is under way, and what was packed before arrives before.
void item_sender_t::PutAlone(outgoing_t& item) {
    groups_.MakeRoom();
    PutUnsent();
    const bool deferred = groups_.HasGroups() && item.when == EWhen::eWithGroup;
    Prepare(item, deferred);
    account_.SpareKept(item.loaded.item.startOffset);
    sink_.Put(item.loaded.item, item.loaded.source, item.loaded.size, options_.overwrite,
              item.isAgain ? nullptr : account_.Progress(), item.warnings);
    Note(item);
    if (deferred) {
        groups_.Add(std::move(item.sent));
    } else {
        account_.Settle(item.sent);
    }
}

bool item_sender_t::PutUnsent() {
    std::vector<sent_item_t> unsent = groups_.TakeUnsent();
    for (sent_item_t& sent : unsent) {
        PutAgain(std::move(sent));
    }
    return !unsent.empty();
}

void item_sender_t::PutAgain(sent_item_t sent) {
    outgoing_t item;
    item.sent = std::move(sent);
    item.isAgain = true;
    try {
        std::vector<copy_note_t> told;
        item.loaded = item.sent.tree->Load(item.sent.entry, item.sent.target, {options_.blockSize}, told);
        Put(item);
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        Lose(item.sent, error.what());
    }
    groups_.CommitIfDue();
}

void item_sender_t::Prepare(outgoing_t& item, bool deferred) const {
    item_t& marked = item.loaded.item;
    groups_.Mark(marked, deferred);
    if (options_.numericOwner) {
        marked.info.owner.name.clear();
        marked.info.group.name.clear();
    }
    item.hasher = WatchContent(item.loaded, options_, item.hasher);
}

// What the source and the receiver had to say of an item that has been read to its end.
void item_sender_t::Note(outgoing_t& item) {
    sent_item_t& sent = item.sent;
    if (item.loaded.hasChanged && item.loaded.hasChanged()) {
        item.warnings.push_back({sent.shown, util::str_format("File [%1] changed while it was read.", sent.shown)});
    }
    sent.counts = sent.counts && (item.warnings.empty() || !options_.strict);
    account_.Warn(std::move(item.warnings));
    if (item.hasher) {
        sent.digest = item.hasher->Get();
    }
}

void item_sender_t::CommitIfDue() {
    groups_.CommitIfDue();
    PutUnsent();
    Collect();
}

void item_sender_t::Commit() {
    do {
        groups_.Commit();
    } while (PutUnsent());
    Collect();
}

void item_sender_t::Collect() {
    while (std::optional<group_lane_t::done_t> group = groups_.TakeDone()) {
        options_.remote.ThrowIfStopped();
        Settle(*std::move(group));
    }
}

void item_sender_t::Settle(group_lane_t::done_t group) {
    account_.Warn(std::move(group.warnings));
    for (std::size_t i = 0; i < group.items.size(); ++i) {
        sent_item_t& sent = group.items[i];
        sent.counts = sent.counts && !(options_.strict && group.warned.count(i) != 0);
        if (group.faults[i].empty()) {
            account_.Settle(sent);
        } else {
            Lose(sent, group.faults[i]);
        }
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
    account_.Fail(sent.shown, text);
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

}  // namespace agent::copy
