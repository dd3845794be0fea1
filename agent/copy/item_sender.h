#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/copy/content_hasher.h"
#include "agent/copy/copy.h"
#include "agent/copy/copy_account.h"
#include "agent/copy/copy_source.h"
#include "agent/copy/group_builder.h"
#include "agent/copy/group_lane.h"
#include "agent/copy/item_sink.h"
#include "agent/copy/item_source.h"
#include "agent/copy/link_keeper.h"
#include "agent/copy/loaded_item.h"
#include "agent/copy/sent_item.h"

namespace agent::copy {

/// Puts items into the sink, together where that is wanted: small ones packed into batches, others one by one, and all
/// of a group into their places at once. An item that fails is noted and the rest goes on; one whose batch or group
/// fails is noted when that is known, at the latest by Commit. Items reach the sink in their order: one that goes alone
/// waits for the batches before it.
///
/// One thread, the copy's own: it reads and packs, puts what goes alone, and keeps account. Where there are batches,
/// they and the commits run beside it on the thread of a group_lane_t, which sees nothing of this object.
class item_sender_t {
  public:
    enum class EWhen {
        eWithGroup,  ///< it gets its place with the other items of its group
        eAtOnce,
    };

    /// All must outlive this object. What the sink does not take must not be asked for.
    item_sender_t(const copy_options_t& options, item_sink_t& sink, copy_observer_t& observer, link_keeper_t& links,
                  gathering_t gathering);
    /// What was not committed is given up.
    ~item_sender_t();

    /// Each returns whether the item is on its way; the failure is noted. They throw for a stop request only.
    bool SendEntry(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& entry, const std::string& target);
    /// Puts a directory where something else stands in the way of what is to go below it, so it does not wait and is
    /// not counted: the directory's own item still follows its contents.
    void MakeWay(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& directory, const std::string& target);
    bool SendSingle(const copy_source_t& source, const std::string& target);
    /// Another name of the file whose first name went to `first`. Where the receiver cannot link them the file is sent
    /// once more, with a warning.
    bool SendName(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& entry, const std::string& target,
                  const std::string& first);

    /// Has the items that wait put in their places, when there are enough of them or they have waited long enough.
    void CommitIfDue();
    /// Everything that was sent is in its place, or noted, when this returns.
    void Commit();

    copy_report_t& Report() noexcept { return account_.Report(); }

  private:
    using load_function_t = std::function<loaded_item_t(std::vector<copy_note_t>& warnings)>;
    /// An item that is to be put.
    struct outgoing_t {
        sent_item_t sent;
        EWhen when = EWhen::eWithGroup;
        loaded_item_t loaded;
        std::vector<copy_note_t> warnings;
        bool isAgain = false;                      ///< its bytes have been counted, and its source's warnings told
        std::shared_ptr<content_hasher_t> hasher;  ///< of what is to be read back, and of what the receiver has
    };

    bool Send(sent_item_t sent, EWhen when, const load_function_t& load);
    bool IsResumable(const outgoing_t& item) const;
    void Continue(outgoing_t& item);

    void Put(outgoing_t& item);
    void Pack(outgoing_t& item);
    void PutAlone(outgoing_t& item);
    /// Puts alone what could not be packed. Whether there was something.
    bool PutUnsent();
    void PutAgain(sent_item_t sent);
    void Prepare(outgoing_t& item, bool deferred) const;
    void Note(outgoing_t& item);

    void Collect();
    void Settle(group_lane_t::done_t group);
    void Lose(const sent_item_t& sent, const std::string& text);
    void SendAgainAsFile(const sent_item_t& name, const std::string& text);

    const copy_options_t& options_;
    item_sink_t& sink_;
    link_keeper_t& links_;
    copy_account_t account_;
    group_builder_t groups_;
};

}  // namespace agent::copy
