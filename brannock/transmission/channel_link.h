#pragma once

#include <memory>

#include "brannock/transmission/channel_ends.h"
#include "brannock/transmission/frame_reader.h"
#include "brannock/transmission/frame_writer.h"
#include "brannock/transmission/private_session.h"
#include "brannock/transmission/transfer_state.h"
#include "brannock/transmission/transfer_watch.h"

namespace brannock::transmission {

/// Everything that one item needs of its channel. Made and destroyed by the transfer's own thread.
class channel_link_t {
  public:
    /// Takes the session's next item number.
    channel_link_t(const channel_spec_t& spec, std::uint64_t maxBlock)
        : device_(spec.device),
          window(spec.net.GetWindow()),
          session(GetSessionOf(spec.device)),
          item(session->NextItemNumber()),
          readMeter_(session->GetIdleTimeout(), session->GetMinimumRate()),
          writeMeter_(session->GetIdleTimeout(), session->GetMinimumRate()),
          writer(*device_, writeMeter_, item),
          reader(*device_, readMeter_, maxBlock),
          watch(
              *session, state, readMeter_, writeMeter_, [this] { return writer.IsBeatDue(); },
              [this] { writer.Beat(); }) {}

    /// Records the exception being handled.
    void FailHere() noexcept {
        const bool broken = reader.IsBroken() || writer.IsBroken();
        state.Fail(std::current_exception(), broken ? EFault::eChannel : EFault::eOwn);
    }

    /// The transfer has failed: the far end gets this long to end its part.
    void LimitTheRest() noexcept { watch.LimitTo(writer.IsBroken() ? kLinger : session->GetIdleTimeout()); }

  private:
    /// Nothing can be said any more; the far end may have said why.
    static constexpr std::chrono::milliseconds kLinger = std::chrono::seconds(2);

    const std::shared_ptr<io::io_dev_t> device_;

  public:
    const std::uint32_t window;
    const std::shared_ptr<ISession> session;
    const std::uint64_t item;
    transfer_state_t state;

  private:
    io_meter_t readMeter_;
    io_meter_t writeMeter_;

  public:
    frame_writer_t writer;
    frame_reader_t reader;
    transfer_watch_t watch;
};

}  // namespace brannock::transmission
