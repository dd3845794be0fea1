#include "brannock/transmission/reverse_side.h"

#include "mirrowen/exc/runtime_exc.h"

namespace brannock::transmission {

void reverse_side_t::ReadToStatus() noexcept {
    try {
        while (!status_) {
            ReadFrame();
        }
        if (status_->result != EItemResult::eOk) {
            link_.state.Fail(ErrorOf(*status_), EFault::eRemote);
        } else if (!ended_ && !link_.state.IsFailed()) {
            throw exc::CRuntimeExc("Broken block stream: the item was acknowledged before its end.");
        }
    } catch (...) {
        link_.state.Fail(std::current_exception(), EFault::eChannel);
    }
    changed_.notify_all();
}

void reverse_side_t::ReadFrame() {
    const frame_header_t header = link_.reader.ReadHeader();
    if (header.item != link_.item) {
        throw exc::CRuntimeExc("Broken block stream: a frame of item [%1] came during item [%2].", header.item,
                               link_.item);
    }
    switch (header.type) {
        case EFrameType::eBusy:
            return;
        case EFrameType::eCredit:
            return TakeCredit(header.block);
        case EFrameType::eStatus:
            status_ = DecodeStatus(link_.reader.ReadPayload());
            return;
        default:
            throw exc::CRuntimeExc("Broken block stream: a frame of type [%1] came from the receiver.",
                                   static_cast<std::uint16_t>(header.type));
    }
}

void reverse_side_t::TakeCredit(std::uint64_t limit) {
    const synch::lock_t lock(mutex_);
    if (limit < limit_ || limit - link_.window > next_) {
        throw exc::CRuntimeExc("Broken block stream: a credit up to block [%1] came at block [%2].", limit, next_);
    }
    limit_ = limit;
    changed_.notify_all();
}

bool reverse_side_t::WaitForCredit(std::uint64_t index) {
    synch::lock_t lock(mutex_);
    while (index >= limit_ && !link_.state.IsFailed()) {
        changed_.wait_for(lock.Native(), util::kWaitSlice);
    }
    next_ = index + 1;
    return !link_.state.IsFailed();
}

}  // namespace brannock::transmission
