#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/copy/content_hasher.h"
#include "agent/copy/copy.h"
#include "agent/copy/copy_source.h"
#include "agent/copy/group_keeper.h"
#include "agent/copy/item_sink.h"
#include "agent/copy/item_source.h"
#include "agent/copy/link_keeper.h"
#include "agent/copy/loaded_item.h"
#include "agent/copy/sent_item.h"
#include "mirrowen/guid/guid.h"
#include "mirrowen/progress/progress_base.h"

namespace agent::copy {

/// Puts items into the sink, in groups where that is wanted, and keeps account of what became of each: an item counts
/// when it is in its place, and one that fails is noted and the rest goes on. One thread.
class item_sender_t {
  public:
    enum class EWhen {
        eWithGroup,  ///< it gets its place with the other items of its group
        eAtOnce,
    };

    /// All must outlive this object. With `groups` false every item gets its place at once.
    item_sender_t(const copy_options_t& options, item_sink_t& sink, copy_observer_t& observer, link_keeper_t& links,
                  bool groups);

    /// Each returns whether the item was put; the failure is noted. They throw for a stop request only.
    bool SendEntry(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& entry, const std::string& target);
    /// Puts a directory where something else stands in the way of what is to go below it, so it does not wait and is
    /// not counted: the directory's own item still follows its contents.
    void MakeWay(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& directory, const std::string& target);
    bool SendSingle(const copy_source_t& source, const std::string& target);
    /// Another name of the file whose first name went to `first`. Where the receiver cannot link them the file is sent
    /// once more, with a warning.
    bool SendName(const std::shared_ptr<item_source_t>& tree, const tree_entry_t& entry, const std::string& target,
                  const std::string& first);

    /// Gives the items that wait their places, when there are enough of them or they have waited long enough.
    void CommitIfDue();
    void Commit();

    copy_report_t& Report() noexcept { return report_; }

  private:
    using load_function_t = std::function<loaded_item_t(std::vector<copy_note_t>& warnings)>;

    bool Send(sent_item_t sent, EWhen when, const load_function_t& load);
    bool IsResumable(const sent_item_t& sent, const loaded_item_t& loaded) const;
    bool Put(sent_item_t sent, EWhen when, loaded_item_t loaded, std::vector<copy_note_t> warnings,
             const std::shared_ptr<content_hasher_t>& begun);
    void SpareKept(std::uint64_t bytes);
    void Prepare(item_t& item, bool deferred) const;
    std::shared_ptr<content_hasher_t> Watch(const sent_item_t& sent, loaded_item_t& loaded,
                                            const std::shared_ptr<content_hasher_t>& begun) const;
    std::vector<std::string> TryCommit(const std::vector<sent_item_t>& items);
    void Settle(const sent_item_t& sent);
    void CheckReadsBack(const sent_item_t& sent);
    void Lose(const sent_item_t& sent, const std::string& text);
    void SendAgainAsFile(const sent_item_t& name, const std::string& text);
    void Warn(std::vector<copy_note_t> warnings);

    const copy_options_t& options_;
    item_sink_t& sink_;
    copy_observer_t& observer_;
    link_keeper_t& links_;
    const bool groups_;
    const guid::guid_t copy_;
    copy_report_t report_;
    const std::shared_ptr<progress::progress_base_t> counter_;
    group_keeper_t group_;
};

}  // namespace agent::copy
