#include "agent/gate/session_scope.h"

namespace agent {

namespace {

thread_local unsigned t_depth = 0;

}  // namespace

session_scope_t::session_scope_t() noexcept {
    ++t_depth;
}

session_scope_t::~session_scope_t() {
    --t_depth;
}

bool session_scope_t::IsActive() noexcept {
    return t_depth != 0;
}

}  // namespace agent
