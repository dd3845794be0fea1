#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/copy/copy.h"
#include "agent/copy/copy_job.h"
#include "agent/copy/item_sink.h"
#include "agent/tree/walk_tree.h"

namespace agent::copy {

/// Looks through the sources without changing anything: counts, refuses directories without `recursive`, and asks the
/// sink, in bulk, what stands in the way. One thread.
class copy_planner_t final : public tree_visitor_t {
  public:
    /// Both must outlive this object.
    copy_planner_t(const copy_options_t& options, item_sink_t& sink);
    ~copy_planner_t() override;

    /// Throws `exc::CRuntimeExc` "[%1] is a directory; -r copies it with everything in it." and, without overwriting,
    /// `exc::CAlreadyExistsExc` "[%1] exists already; nothing was changed.".
    void Plan(const copy_job_t& job);

    std::uint64_t Items() const noexcept { return items_; }
    std::uint64_t Bytes() const noexcept { return bytes_; }

  private:
    void OnEntry(const tree_entry_t& entry) override;
    void OnDirectoryLeft(const tree_entry_t& entry) override;
    void OnUnreadable(const std::string& name, const std::string& fault) override;
    void Add(item_sink_t::question_t question);
    void Ask();

    const copy_options_t& options_;
    item_sink_t& sink_;
    const copy_job_t* job_ = nullptr;
    std::vector<item_sink_t::question_t> questions_;
    std::uint64_t items_ = 0;
    std::uint64_t bytes_ = 0;
};

}  // namespace agent::copy
