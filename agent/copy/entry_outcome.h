#pragma once

#include <vector>

#include "agent/copy/item_sink.h"
#include "brannock/transmission/entry_reports.h"

namespace agent::copy {

/// Sorts what a receiver reports of an item or a group: entries that were lost, and warnings.
class entry_outcome_t {
  public:
    /// `warnings` must outlive this object.
    explicit entry_outcome_t(std::vector<copy_note_t>& warnings) : warnings_(warnings) {}

    /// The texts are a peer's: control bytes in them are escaped.
    void Take(const std::vector<brannock::transmission::entry_report_t>& reports);

    std::vector<item_sink_t::lost_entry_t> TakeLost() { return std::move(lost_); }

  private:
    std::vector<copy_note_t>& warnings_;
    std::vector<item_sink_t::lost_entry_t> lost_;
};

}  // namespace agent::copy
