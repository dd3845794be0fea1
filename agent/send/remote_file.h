#pragma once

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "agent/net/connection.h"
#include "agent/net/remote_options.h"
#include "agent/send/area_pipe.h"
#include "agent/send/one_item_receiver.h"
#include "agent/send/send_request.h"
#include "mirrowen/io/area/area_read_dev.h"
#include "mirrowen/io/area/knows_holes.h"

namespace agent::send {

/// One item of another agent, as a source that is read when its reader wants to: the far end sends as fast as it is
/// read and a little ahead. The far end hears a sign of life while the reader pauses. Destroyed before its end it
/// closes the connection, so that no thread stays behind.
///
/// Driven by one thread at a time. Every failure, of either end and of the wire, is `exc::CRuntimeExc` "Failed to read
/// [%1]." with the reason as its cause.
class remote_file_t final : public io::area::area_read_dev_t, public io::area::IKnowsHoles {
  public:
    /// Takes the connection back when the next item may be asked for on it.
    using give_back_t = std::function<void(net::connection_t)>;

    /// Asks for the item and returns when it was announced. `shown` is the item's name for messages.
    static std::shared_ptr<remote_file_t> Open(net::connection_t connection, const send_request_t& request,
                                               std::string shown, const net::remote_options_t& options,
                                               give_back_t giveBack);
    ~remote_file_t() override;
    remote_file_t(const remote_file_t&) = delete;
    remote_file_t& operator=(const remote_file_t&) = delete;

    /// What the item is; its path is the one that was asked for.
    const announced_t& GetAnnounced() const noexcept { return announced_; }
    /// What the far end could not read of its attributes.
    const std::vector<copy::copy_note_t>& GetNotes() const noexcept { return notes_; }

    /// After an empty pointer the item is complete: its digest was compared and the far end ended it in order.
    std::shared_ptr<io::area::IArea> ReadNext() override;
    std::string GetDisplayName() override { return shown_; }
    void SetEmptyBlocksMaximum(std::uint64_t /*maximum*/) override {}
    bool KnowsHoles() const noexcept override { return true; }

    /// Whether the far end saw the file change while it was read, though not its size. Known at the end.
    bool HasChanged() const noexcept { return changed_; }

  private:
    remote_file_t(net::connection_t connection, const send_request_t& request, std::string shown,
                  const net::remote_options_t& options, give_back_t giveBack);

    void Ask();
    void Begin();
    void Receive();
    void ReceiveItem();

    const send_request_t request_;
    const std::string shown_;
    const give_back_t giveBack_;
    const std::shared_ptr<area_pipe_t> pipe_;
    const std::shared_ptr<one_item_receiver_t> receiver_;
    std::vector<copy::copy_note_t> notes_;
    announced_t announced_;
    bool changed_ = false;  ///< set by the receiving thread before it closes the pipe
    net::connection_t connection_;
    std::future<void> receiving_;
};

/// Tells the far end that nothing more is asked for; a failure does not matter.
void SayEnd(const net::connection_t& connection) noexcept;

}  // namespace agent::send
