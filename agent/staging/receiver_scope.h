#pragma once

#include <memory>

#include "agent/staging/item_receiver.h"

namespace agent {

/// Says who takes the items that arrive on the calling thread while it lives; scopes nest, the innermost receives. Made
/// and destroyed on the same thread; threads that a session starts need a scope of their own.
class receiver_scope_t {
  public:
    explicit receiver_scope_t(std::shared_ptr<IItemReceiver> receiver);
    ~receiver_scope_t();
    receiver_scope_t(const receiver_scope_t&) = delete;
    receiver_scope_t& operator=(const receiver_scope_t&) = delete;

    /// The calling thread's receiver, or none.
    static std::shared_ptr<IItemReceiver> Current();

  private:
    std::shared_ptr<IItemReceiver> previous_;
};

}  // namespace agent
