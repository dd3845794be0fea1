#include "agent/copy/empty_source.h"

#include <utility>

namespace agent::copy {

empty_source_t::empty_source_t(std::string name) : name_(std::move(name)) {}

empty_source_t::~empty_source_t() = default;

std::shared_ptr<io::area::IArea> empty_source_t::ReadNext() {
    return nullptr;
}

std::string empty_source_t::GetDisplayName() {
    return name_;
}

void empty_source_t::SetEmptyBlocksMaximum(std::uint64_t) {}

}  // namespace agent::copy
