#include "agent/copy/copier.h"

#include <exception>

#include "agent/copy/content_hasher.h"
#include "mirrowen/logging/log_exc.h"

namespace agent::copy {

namespace {

constexpr std::size_t kStepsAtOnce = 512;

bool is_same_inode(const object_brief_t& left, const object_brief_t& right) {
    return left.device == right.device && left.inode == right.inode;
}

}  // namespace

copier_t::copier_t(const copy_options_t& options, item_sink_t& sink, copy_observer_t& observer, gathering_t gathering)
    : options_(options),
      sink_(sink),
      observer_(observer),
      asks_((options.overwrite && !options.force) || options.dryRun),
      sender_(options, sink, observer, links_, gathering) {}

copier_t::~copier_t() = default;

void copier_t::Run(const copy_job_t& job) {
    job_ = &job;
    KeepOrder(job.target);
    if (job.IsTree()) {
        WalkTree(*job.source.tree, job.source.top, *this);
        TakeSteps();
    } else if (options_.dryRun) {
        observer_.OnDecision(AskOne(job.target) ? "replace" : "copy", job.source.text);
    } else {
        sender_.SendSingle(job.source, job.target);
    }
}

copy_report_t copier_t::Finish() {
    sender_.Commit();
    return std::move(sender_.Report());
}

// Of two sources that go to one place the later one stays, so the earlier one has to be in its place before the later
// one is looked at.
void copier_t::KeepOrder(const std::string& target) {
    if (!targets_.insert(target).second || targets_.count("") != 0) {
        sender_.Commit();
    }
}

void copier_t::OnEntry(const tree_entry_t& entry) {
    options_.remote.ThrowIfStopped();
    sink_.KeepAlive();
    sender_.CommitIfDue();
    if (!IsSpecial(entry.brief.kind)) {
        AddStep(entry.brief.kind == EEntryKind::eDirectory ? EStep::eEnter : EStep::eItem, entry);
        return;
    }
    sender_.Report().skipped.push_back({Shown(entry.name), NameOfKind(entry.brief.kind)});
    if (options_.dryRun) {
        Decide(std::string("skip ") + NameOfKind(entry.brief.kind), entry);
    }
}

void copier_t::OnDirectoryLeft(const tree_entry_t& entry) {
    AddStep(EStep::eLeave, entry);
}

void copier_t::OnUnreadable(const std::string& name, const std::string& fault) {
    sender_.Report().failed.push_back({Shown(name), fault});
}

void copier_t::AddStep(EStep step, const tree_entry_t& entry) {
    steps_.push_back({step, entry, job_->TargetOf(entry.name), std::nullopt});
    if (steps_.size() >= kStepsAtOnce) {
        TakeSteps();
    }
}

void copier_t::TakeSteps() {
    if (asks_) {
        Ask();
    }
    for (const step_t& step : std::exchange(steps_, {})) {
        options_.remote.ThrowIfStopped();
        Take(step);
    }
}

void copier_t::Ask() {
    std::vector<std::string> targets;
    for (const step_t& step : steps_) {
        if (step.step != EStep::eLeave) {
            targets.push_back(step.target);
        }
    }
    std::vector<std::optional<object_brief_t>> found;
    try {
        found = sink_.Examine(targets);
    } catch (const std::exception& error) {
        // One bad name spoils the question for all: each is asked for by itself.
        options_.remote.ThrowIfStopped();
        logging::LogExc(error, "Targets are asked for one by one.");
        for (const std::string& target : targets) {
            found.push_back(AskOne(target));
        }
    }
    auto next = found.begin();
    for (step_t& step : steps_) {
        if (step.step != EStep::eLeave) {
            step.there = std::move(*next++);
        }
    }
}

// What cannot be told is taken for nothing: whatever is wrong shows when the item is put.
std::optional<object_brief_t> copier_t::AskOne(const std::string& target) {
    try {
        return sink_.Examine({target}).front();
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        logging::LogExc(error, "A target could not be asked for.");
        return std::nullopt;
    }
}

void copier_t::Take(const step_t& step) {
    switch (step.step) {
        case EStep::eItem:
            TakeItem(step);
            break;
        case EStep::eEnter:
            Enter(step);
            break;
        case EStep::eLeave:
            Leave(step);
            break;
    }
}

// A file or link that a directory is to replace has to go before the contents come.
void copier_t::Enter(const step_t& step) {
    level_t level;
    if (step.there && step.there->kind == EEntryKind::eDirectory) {
        level.there = step.there;
    } else {
        Touch();
    }
    level.inTheWay = IsInTheWay(step);
    if (level.inTheWay && !options_.dryRun) {
        sender_.MakeWay(job_->source.tree, step.entry, step.target);
    }
    levels_.push_back(level);
}

bool copier_t::IsInTheWay(const step_t& step) {
    if (asks_) {
        return step.there && step.there->kind != EEntryKind::eDirectory;
    }
    return options_.overwrite && !step.target.empty() && sink_.FindInTheWay({{step.target, true}});
}

void copier_t::Leave(const step_t& step) {
    const level_t level = levels_.back();
    levels_.pop_back();
    if (job_->merges && step.entry.name == job_->source.top) {
        return;
    }
    if (!level.touched && IsUnchangedThere(step.entry, step.target, level.there)) {
        Spare(step.entry);
    } else if (options_.dryRun) {
        Decide(level.there ? "update" : level.inTheWay ? "replace" : "copy", step.entry);
    } else {
        sender_.SendEntry(job_->source.tree, step.entry, step.target);
    }
}

void copier_t::TakeItem(const step_t& step) {
    const bool hasOthers = link_keeper_t::HasOthers(step.entry.brief);
    if (hasOthers) {
        if (const auto first = links_.See(step.entry.brief)) {
            TakeName(step, *first);
            return;
        }
    }
    if (IsUnchangedThere(step.entry, step.target, step.there)) {
        if (hasOthers) {
            links_.Keep(step.entry.brief, {step.target, step.there});
        }
        Spare(step.entry);
        return;
    }
    Touch();
    SendItem(step);
}

void copier_t::TakeName(const step_t& step, const link_keeper_t::first_t& first) {
    if (first.there && step.there && is_same_inode(*first.there, *step.there)) {
        Spare(step.entry);
        return;
    }
    Touch();
    if (options_.dryRun) {
        Decide("link", step.entry);
    } else {
        sender_.SendName(job_->source.tree, step.entry, step.target, first.target);
    }
}

void copier_t::SendItem(const step_t& step) {
    if (options_.dryRun) {
        Decide(step.there ? "replace" : "copy", step.entry);
    } else if (!sender_.SendEntry(job_->source.tree, step.entry, step.target)) {
        return;
    }
    if (link_keeper_t::HasOthers(step.entry.brief)) {
        links_.Keep(step.entry.brief, {step.target, std::nullopt});
    }
}

bool copier_t::IsUnchangedThere(const tree_entry_t& entry, const std::string& target,
                                const std::optional<object_brief_t>& there) {
    if (!options_.overwrite || options_.force || !there || !IsUnchanged(entry.brief, *there, Rules())) {
        return false;
    }
    return !options_.checksum || entry.brief.kind != EEntryKind::eFile || HasSameContent(entry, target);
}

// What cannot be compared is copied; whatever is wrong with it shows then.
bool copier_t::HasSameContent(const tree_entry_t& entry, const std::string& target) {
    try {
        const auto theirs = sink_.Digest(target);
        if (!theirs || theirs->size != entry.brief.size) {
            return false;
        }
        std::vector<copy_note_t> unheard;
        const loaded_item_t loaded = job_->source.tree->Load(entry, target, {options_.blockSize}, unheard);
        content_hasher_t hasher;
        while (const auto area = loaded.source->ReadNext()) {
            options_.remote.ThrowIfStopped();
            hasher.Add(*area);
        }
        return hasher.Get() == *theirs;
    } catch (const std::exception& error) {
        options_.remote.ThrowIfStopped();
        logging::LogExc(error, "Contents could not be compared.");
        return false;
    }
}

const sameness_t& copier_t::Rules() {
    if (!rules_) {
        rules_ = sameness_t{sink_.KeepsOwners(), options_.numericOwner, !options_.checksum};
    }
    return *rules_;
}

void copier_t::Spare(const tree_entry_t& entry) {
    ++sender_.Report().unchanged;
    if (entry.brief.kind == EEntryKind::eFile) {
        observer_.OnBytesSpared(entry.brief.size);
    }
    if (options_.dryRun) {
        Decide("skip unchanged", entry);
    } else {
        observer_.OnItemDone(Shown(entry.name));
    }
}

void copier_t::Touch() {
    if (!levels_.empty()) {
        levels_.back().touched = true;
    }
}

void copier_t::Decide(const std::string& action, const tree_entry_t& entry) {
    observer_.OnDecision(action, Shown(entry.name));
}

std::string copier_t::Shown(const std::string& entry) const {
    return job_->source.tree->Shown(entry);
}

}  // namespace agent::copy
