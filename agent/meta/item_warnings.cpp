#include "agent/meta/item_warnings.h"

#include <utility>

#include "mirrowen/logging/log_section.h"

namespace agent {

namespace {

constinit logging::log_section_t g_log("agent");

thread_local std::shared_ptr<item_warnings_t> t_current;

}  // namespace

void item_warnings_t::Add(item_warning_t warning) {
    const synch::lock_t lock(mutex_);
    ++count_;
    if (kept_.size() < kMaxKept) {
        kept_.push_back(std::move(warning));
    }
}

std::vector<item_warning_t> item_warnings_t::Get() const {
    const synch::lock_t lock(mutex_);
    return kept_;
}

std::size_t item_warnings_t::Count() const {
    const synch::lock_t lock(mutex_);
    return count_;
}

warning_scope_t::warning_scope_t(std::shared_ptr<item_warnings_t> warnings)
    : previous_(std::exchange(t_current, std::move(warnings))) {}

warning_scope_t::~warning_scope_t() {
    t_current = std::move(previous_);
}

std::shared_ptr<item_warnings_t> warning_scope_t::Current() {
    return t_current;
}

void Report(const std::shared_ptr<item_warnings_t>& warnings, item_warning_t warning) {
    if (warnings) {
        warnings->Add(std::move(warning));
    } else {
        g_log.warn(warning.text);
    }
}

}  // namespace agent
