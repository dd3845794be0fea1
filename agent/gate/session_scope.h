#pragma once

namespace agent {

/// Marks the calling thread as one that works for a peer's session: while an object lives on the thread, the path gate
/// judges every path that is dispatched there. Scopes may nest. Made and destroyed on the same thread; threads that the
/// session starts need a scope of their own.
class session_scope_t {
  public:
    session_scope_t() noexcept;
    ~session_scope_t();
    session_scope_t(const session_scope_t&) = delete;
    session_scope_t& operator=(const session_scope_t&) = delete;

    /// Whether the calling thread is inside a scope.
    static bool IsActive() noexcept;
};

}  // namespace agent
