#include "agent/copy/hearing_source.h"

#include <utility>

namespace agent::copy {

hearing_source_t::hearing_source_t(std::shared_ptr<io::area::area_read_dev_t> inner, entry_outcome_t& outcome)
    : inner_(std::move(inner)), outcome_(outcome) {}

hearing_source_t::~hearing_source_t() = default;

std::shared_ptr<io::area::IArea> hearing_source_t::ReadNext() {
    return inner_->ReadNext();
}

std::string hearing_source_t::GetDisplayName() {
    return inner_->GetDisplayName();
}

void hearing_source_t::SetEmptyBlocksMaximum(std::uint64_t maximum) {
    inner_->SetEmptyBlocksMaximum(maximum);
}

bool hearing_source_t::KnowsHoles() const noexcept {
    return io::area::KnowsHoles(*inner_);
}

void hearing_source_t::OnEntryReports(const std::vector<brannock::transmission::entry_report_t>& reports) {
    outcome_.Add(reports);
}

}  // namespace agent::copy
