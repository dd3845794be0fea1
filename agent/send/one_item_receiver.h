#pragma once

#include <cstdint>
#include <future>
#include <memory>
#include <optional>

#include "agent/send/area_pipe.h"
#include "agent/send/send_request.h"
#include "agent/staging/item_receiver.h"

namespace agent::send {

/// What the far end announced: the item, and how many bytes of content follow.
struct announced_t {
    item_t item;
    std::uint64_t size = 0;
};

/// Takes the one item that was asked for, whose content goes into a pipe, and nothing else: the far end decides neither
/// where anything goes nor how often. One thread receives, another one waits for the announcement.
class one_item_receiver_t final : public IItemReceiver {
  public:
    /// `pipe` is shared.
    one_item_receiver_t(send_request_t request, std::shared_ptr<area_pipe_t> pipe);
    ~one_item_receiver_t() override;

    /// Throws `exc::CRuntimeExc` for anything but a file, directory or link with attributes, under the very name and
    /// from the very byte that were asked for, once. The device throws for content that is longer or shorter than
    /// announced, or out of order.
    std::shared_ptr<io::area::area_write_dev_t> Receive(item_t item, std::uint64_t size, EReplace replace) override;

    /// Waits for the announcement; nothing when none comes. Called once.
    std::optional<announced_t> WaitAnnounced() { return promised_.get_future().get(); }
    /// The receiving has ended. Does nothing after an announcement.
    void Close();
    /// Throws "[%1] was asked for, but nothing came." unless an item did.
    void CheckTaken() const;

  private:
    void Check(const item_t& item, std::uint64_t size) const;

    const send_request_t request_;
    const std::shared_ptr<area_pipe_t> pipe_;
    std::promise<std::optional<announced_t>> promised_;
    bool taken_ = false;
};

}  // namespace agent::send
