#pragma once

#include <utility>
#include <vector>

#include "agent/copy/item_sink.h"
#include "brannock/transmission/entry_reports.h"

namespace agent::copy {

/// Sorts what a receiver reports of an item or a group: entries that were lost, and warnings.
class entry_outcome_t {
  public:
    /// The texts are a peer's: control bytes in them are escaped.
    void Add(const std::vector<brannock::transmission::entry_report_t>& reports);

    /// Everything until now.
    item_sink_t::committed_t Take() { return std::exchange(outcome_, {}); }

  private:
    item_sink_t::committed_t outcome_;
};

}  // namespace agent::copy
