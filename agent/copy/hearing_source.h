#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/copy/entry_outcome.h"
#include "brannock/transmission/entry_reports.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/area/knows_holes.h"

namespace agent::copy {

/// A source that hears what the far end could not apply, and otherwise passes everything through. One thread at a time.
class hearing_source_t final : public io::area::area_read_dev_t,
                               public io::area::IKnowsHoles,
                               public brannock::transmission::IEntryReportSink {
  public:
    /// `outcome` must outlive this object.
    hearing_source_t(std::shared_ptr<io::area::area_read_dev_t> inner, entry_outcome_t& outcome);
    ~hearing_source_t() override;

    std::shared_ptr<io::area::IArea> ReadNext() override;
    std::string GetDisplayName() override;
    void SetEmptyBlocksMaximum(std::uint64_t maximum) override;
    bool KnowsHoles() const noexcept override;
    void OnEntryReports(const std::vector<brannock::transmission::entry_report_t>& reports) override;

  private:
    const std::shared_ptr<io::area::area_read_dev_t> inner_;
    entry_outcome_t& outcome_;
};

}  // namespace agent::copy
