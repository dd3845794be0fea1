#include "agent/staging/receiver_scope.h"

#include <utility>

namespace agent {

namespace {

thread_local std::shared_ptr<IItemReceiver> t_current;

}  // namespace

receiver_scope_t::receiver_scope_t(std::shared_ptr<IItemReceiver> receiver)
    : previous_(std::exchange(t_current, std::move(receiver))) {}

receiver_scope_t::~receiver_scope_t() {
    t_current = std::move(previous_);
}

std::shared_ptr<IItemReceiver> receiver_scope_t::Current() {
    return t_current;
}

}  // namespace agent
