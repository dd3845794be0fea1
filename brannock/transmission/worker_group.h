#pragma once

#include <functional>
#include <future>
#include <utility>
#include <vector>

#include "brannock/transmission/session.h"
#include "brannock/transmission/transfer_state.h"

namespace brannock::transmission {

/// The stages of one transfer that run beside its own thread. A stage that throws fails the transfer. Destroying the
/// group waits for all of them, so everything that they use stands before it.
class worker_group_t {
  public:
    worker_group_t(ISession& session, transfer_state_t& state) : session_(session), state_(state) {}
    worker_group_t(const worker_group_t&) = delete;
    worker_group_t& operator=(const worker_group_t&) = delete;
    ~worker_group_t() { Join(); }

    void Run(std::function<void()> stage) {
        stages_.push_back(session_.Run([this, stage = std::move(stage)] {
            try {
                stage();
            } catch (...) {
                state_.Fail(std::current_exception(), EFault::eOwn);
            }
        }));
    }

    void Join() noexcept {
        for (std::future<void>& stage : stages_) {
            if (stage.valid()) {
                stage.wait();
            }
        }
        stages_.clear();
    }

  private:
    ISession& session_;
    transfer_state_t& state_;
    std::vector<std::future<void>> stages_;
};

}  // namespace brannock::transmission
