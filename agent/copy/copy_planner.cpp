#include "agent/copy/copy_planner.h"

#include <optional>
#include <utility>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::copy {

namespace {

constexpr std::size_t kQuestionsAtOnce = 4096;

}  // namespace

copy_planner_t::copy_planner_t(const copy_options_t& options, item_sink_t& sink) : options_(options), sink_(sink) {}

copy_planner_t::~copy_planner_t() = default;

void copy_planner_t::Plan(const copy_job_t& job) {
    job_ = &job;
    if (job.IsTree()) {
        WalkTree(*job.source.tree, job.source.top, *this);
    } else {
        Add({job.target, false});
    }
    Ask();
}

void copy_planner_t::OnEntry(const tree_entry_t& entry) {
    options_.remote.ThrowIfStopped();
    sink_.KeepAlive();
    const bool directory = entry.brief.kind == EEntryKind::eDirectory;
    if (directory && !options_.recursive) {
        throw exc::CRuntimeExc("[%1] is a directory; -r copies it with everything in it.", job_->source.text);
    }
    if (IsSpecial(entry.brief.kind)) {
        return;
    }
    bytes_ += entry.brief.kind == EEntryKind::eFile ? entry.brief.size : 0;
    Add({job_->TargetOf(entry.name), directory});
}

void copy_planner_t::OnDirectoryLeft(const tree_entry_t&) {}

// What cannot be read is reported when it is to be copied.
void copy_planner_t::OnUnreadable(const std::string&, const std::string&) {}

void copy_planner_t::Add(item_sink_t::question_t question) {
    ++items_;
    if (options_.overwrite) {
        return;
    }
    questions_.push_back(std::move(question));
    if (questions_.size() >= kQuestionsAtOnce) {
        Ask();
    }
}

void copy_planner_t::Ask() {
    const std::optional<std::string> found = sink_.FindInTheWay(questions_);
    questions_.clear();
    if (found) {
        throw exc::CAlreadyExistsExc("[" + sink_.Shown(*found) + "] exists already; nothing was changed.");
    }
}

}  // namespace agent::copy
