#include "agent/copy/steady_source.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace agent::copy {

steady_source_t::steady_source_t(std::shared_ptr<io::area::area_read_dev_t> inner, std::function<bool()> hasChanged)
    : inner_(std::move(inner)), hasChanged_(std::move(hasChanged)) {}

steady_source_t::~steady_source_t() = default;

std::shared_ptr<io::area::IArea> steady_source_t::ReadNext() {
    auto area = inner_->ReadNext();
    if (!area && hasChanged_()) {
        throw exc::CRuntimeExc("File [%1] changed while it was read.", inner_->GetDisplayName());
    }
    return area;
}

std::string steady_source_t::GetDisplayName() {
    return inner_->GetDisplayName();
}

void steady_source_t::SetEmptyBlocksMaximum(std::uint64_t maximum) {
    inner_->SetEmptyBlocksMaximum(maximum);
}

bool steady_source_t::KnowsHoles() const noexcept {
    return io::area::KnowsHoles(*inner_);
}

}  // namespace agent::copy
