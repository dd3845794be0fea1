#include "brannock/transmission/transfer_watch.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"

namespace brannock::transmission {

void io_meter_t::Touch() noexcept {
    idleAt_ = util::clock().SteadyNow() + idle_;
}

void io_meter_t::BeginBytes(std::size_t bytes) noexcept {
    Touch();
    if (rate_ != 0) {
        const std::chrono::milliseconds atRate(bytes * 1000 / rate_);
        frameAt_ = util::clock().SteadyNow() + idle_ + atRate;
    }
}

void io_meter_t::Rest() noexcept {
    idleAt_ = kNever;
    frameAt_ = kNever;
}

void io_meter_t::CheckExc() const {
    const auto now = util::clock().SteadyNow();
    if (now >= idleAt_.load()) {
        throw exc::CRuntimeExc("The far end of the transfer has been silent for [%1] ms.", idle_.count());
    }
    if (now >= frameAt_.load()) {
        throw exc::CRuntimeExc("The far end of the transfer is slower than [%1] bytes a second.", rate_);
    }
}

transfer_watch_t::transfer_watch_t(ISession& session, transfer_state_t& state, const io_meter_t& reads,
                                   const io_meter_t& writes, std::function<bool()> isBeatDue,
                                   std::function<void()> beat)
    : session_(session),
      state_(state),
      reads_(reads),
      writes_(writes),
      isBeatDue_(std::move(isBeatDue)),
      beat_(std::move(beat)) {}

transfer_watch_t::~transfer_watch_t() {
    Stop();
}

void transfer_watch_t::Start() {
    watcher_ = session_.Run([this] { Watch(); });
}

void transfer_watch_t::LimitTo(std::chrono::milliseconds time) noexcept {
    endAt_ = util::clock().SteadyNow() + time;
}

void transfer_watch_t::Stop() noexcept {
    {
        const synch::lock_t lock(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
    for (std::future<void>* const work : {&watcher_, &beater_}) {
        if (work->valid()) {
            work->wait();
        }
    }
}

void transfer_watch_t::Watch() {
    try {
        do {
            CheckExc();
            if (!beater_.valid() && isBeatDue_()) {
                beater_ = session_.Run([this] { Beat(); });
            }
        } while (WaitSlice());
    } catch (...) {
        const bool stopped = session_.GetStopToken().stop_requested();
        state_.Fail(std::current_exception(), stopped ? EFault::eOwn : EFault::eChannel);
        session_.Cancel();
    }
}

void transfer_watch_t::CheckExc() const {
    if (session_.GetStopToken().stop_requested()) {
        throw exc::CRuntimeExc("The transfer was cancelled.");
    }
    reads_.CheckExc();
    writes_.CheckExc();
    if (util::clock().SteadyNow() >= endAt_.load()) {
        throw exc::CRuntimeExc("The far end did not end the failed transfer in time.");
    }
}

void transfer_watch_t::Beat() {
    do {
        beat_();
    } while (WaitSlice());
}

bool transfer_watch_t::WaitSlice() {
    synch::lock_t lock(mutex_);
    if (!stopped_) {
        changed_.wait_for(lock.Native(), util::kWaitSlice);
    }
    return !stopped_;
}

}  // namespace brannock::transmission
