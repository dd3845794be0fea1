#include "agent/send/area_pipe.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/clock.h"

namespace agent::send {

namespace {

// A run of zeroes takes no memory.
std::size_t BytesHeld(const io::area::IArea& area) {
    return area.GetKind() == io::area::EAreaKind::eData ? static_cast<std::size_t>(area.GetSize()) : 0;
}

}  // namespace

area_pipe_t::area_pipe_t(std::string name, std::stop_token stop, std::chrono::milliseconds patience)
    : name_(std::move(name)), stop_(std::move(stop)), patience_(patience) {}

void area_pipe_t::Push(std::shared_ptr<io::area::IArea> area) {
    synch::lock_t lock(mutex_);
    WaitForRoom(lock);
    bytes_ += BytesHeld(*area);
    areas_.push_back(std::move(area));
    changed_.notify_all();
}

void area_pipe_t::Close() {
    const synch::lock_t lock(mutex_);
    if (state_ == EState::eOpen) {
        state_ = EState::eClosed;
    }
    changed_.notify_all();
}

void area_pipe_t::Fail(std::string reason) noexcept {
    EndWith(EState::eFailed, std::move(reason));
}

std::shared_ptr<io::area::IArea> area_pipe_t::Pop() {
    synch::lock_t lock(mutex_);
    while (state_ == EState::eOpen && areas_.empty()) {
        changed_.wait_for(lock.Native(), util::kWaitSlice);
    }
    if (state_ == EState::eFailed) {
        throw exc::CRuntimeExc(reason_);
    }
    if (areas_.empty()) {
        return nullptr;
    }
    std::shared_ptr<io::area::IArea> area = std::move(areas_.front());
    areas_.pop_front();
    bytes_ -= BytesHeld(*area);
    changed_.notify_all();
    return area;
}

void area_pipe_t::Leave() noexcept {
    EndWith(EState::eLeft, {});
}

bool area_pipe_t::HasRoom() const {
    return areas_.empty() || (areas_.size() < kMaxAreas && bytes_ < kMaxBytes);
}

void area_pipe_t::WaitForRoom(synch::lock_t& lock) {
    const auto since = util::clock().SteadyNow();
    while (state_ == EState::eOpen && !HasRoom()) {
        if (stop_.stop_requested()) {
            throw exc::CRuntimeExc("Reading [%1] was cancelled.", name_);
        }
        if (util::clock().SteadyNow() - since >= patience_) {
            throw exc::CRuntimeExc("Nobody has read of [%1] for %2 s.", name_,
                                   std::chrono::duration_cast<std::chrono::seconds>(patience_).count());
        }
        changed_.wait_for(lock.Native(), util::kWaitSlice);
    }
    if (state_ != EState::eOpen) {
        throw exc::CRuntimeExc("Nobody reads [%1] any more.", name_);
    }
}

// The first failure or leave stays.
void area_pipe_t::EndWith(EState state, std::string reason) noexcept {
    std::deque<std::shared_ptr<io::area::IArea>> dropped;
    const synch::lock_t lock(mutex_);
    if (state_ == EState::eOpen || state_ == EState::eClosed) {
        state_ = state;
        reason_ = std::move(reason);
        dropped.swap(areas_);
        bytes_ = 0;
    }
    changed_.notify_all();
}

}  // namespace agent::send
