#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/copy/copy.h"
#include "agent/copy/copy_job.h"
#include "agent/copy/item_sender.h"
#include "agent/copy/item_sink.h"
#include "agent/copy/link_keeper.h"
#include "agent/copy/unchanged.h"
#include "agent/tree/walk_tree.h"

namespace agent::copy {

/// Goes through the sources and decides what has to be done for each item: nothing, when it is unchanged at the
/// destination, another name for a file that went there already, or sending it. A directory's own item follows its
/// contents, so its times stick. An item that fails is noted and the rest goes on. One thread.
class copier_t final : public tree_visitor_t {
  public:
    /// All must outlive this object.
    copier_t(const copy_options_t& options, item_sink_t& sink, copy_observer_t& observer, gathering_t gathering);
    ~copier_t() override;

    /// Throws only for a stop request and for a source whose top has gone.
    void Run(const copy_job_t& job);
    /// Everything is in its place when this returns.
    copy_report_t Finish();

  private:
    enum class EStep { eItem, eEnter, eLeave };
    /// Something found in the source, waiting until the sink has been asked about enough of its kind at once.
    struct step_t {
        EStep step = EStep::eItem;
        tree_entry_t entry;
        std::string target;
        std::optional<object_brief_t> there;  ///< what lies at the target
    };
    /// A directory that is being gone through.
    struct level_t {
        std::optional<object_brief_t> there;  ///< the directory at the target, when it was one before
        bool inTheWay = false;                ///< something else was there
        bool touched = false;                 ///< something was put directly into it
    };

    void OnEntry(const tree_entry_t& entry) override;
    void OnDirectoryLeft(const tree_entry_t& entry) override;
    void OnUnreadable(const std::string& name, const std::string& fault) override;

    void KeepOrder(const std::string& target);
    void AddStep(EStep step, const tree_entry_t& entry);
    void TakeSteps();
    void Ask();
    std::optional<object_brief_t> AskOne(const std::string& target);
    void Take(const step_t& step);
    void Enter(const step_t& step);
    void Leave(const step_t& step);
    bool IsInTheWay(const step_t& step);
    void TakeItem(const step_t& step);
    void TakeName(const step_t& step, const link_keeper_t::first_t& first);
    void SendItem(const step_t& step);

    bool IsUnchangedThere(const tree_entry_t& entry, const std::string& target,
                          const std::optional<object_brief_t>& there);
    bool HasSameContent(const tree_entry_t& entry, const std::string& target);
    const sameness_t& Rules();
    void Spare(const tree_entry_t& entry);
    void Touch();
    void Decide(const std::string& action, const tree_entry_t& entry);
    std::string Shown(const std::string& entry) const;

    const copy_options_t& options_;
    item_sink_t& sink_;
    copy_observer_t& observer_;
    const bool asks_;  ///< what lies at the targets makes a difference
    link_keeper_t links_;
    item_sender_t sender_;
    std::optional<sameness_t> rules_;
    const copy_job_t* job_ = nullptr;
    std::vector<step_t> steps_;
    std::vector<level_t> levels_;
    std::set<std::string> targets_;  ///< of the jobs until now
};

}  // namespace agent::copy
