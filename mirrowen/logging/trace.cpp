#include "mirrowen/logging/trace.h"

namespace logging {

trace_t::trace_t(filled_t /*tag*/, ILogSection& section, std::string&& opening)
    : section_(section), opening_(std::move(opening)) {
    section_.tr(opening_);
}

trace_t::~trace_t() {
    if (open_) {
        section_.tr("Failed: %1", opening_);
    }
}

void trace_t::ok(std::string_view text) noexcept {
    open_ = false;
    section_.tr(text);
}

void trace_t::ok() noexcept {
    open_ = false;
}

trace_fail_t::~trace_fail_t() {
    if (open_) {
        section_.tr("Failed: %1", text_);
    }
}

void trace_fail_t::ok() noexcept {
    open_ = false;
}

void trace_fail_t::ok(std::string_view text) noexcept {
    open_ = false;
    section_.tr(text);
}

}  // namespace logging
