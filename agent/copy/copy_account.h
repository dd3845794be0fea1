#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "agent/copy/copy.h"
#include "agent/copy/item_sink.h"
#include "agent/copy/sent_item.h"
#include "mirrowen/progress/progress_base.h"

namespace agent::copy {

/// What a copy has come to: an item counts when it is in its place, and what failed or was not kept is noted. Used by
/// the thread that called Copy and by no other, but the progress is reported on the one that sends.
class copy_account_t {
  public:
    /// All must outlive this object.
    copy_account_t(const copy_options_t& options, item_sink_t& sink, copy_observer_t& observer);

    /// Counts the bytes that travel and throws for a stop request. Goes with this object.
    const std::shared_ptr<progress::progress_base_t>& Progress() const noexcept { return progress_; }
    /// The far end had so many bytes of the next item already.
    void SpareKept(std::uint64_t bytes);

    /// The item is in its place. One that is to be read back is read back now, and fails when it is not what was sent.
    /// Throws for a stop request only.
    void Settle(const sent_item_t& sent);
    void Fail(const std::string& shown, const std::string& text);
    /// With `options.strict` what is warned of has failed.
    void Warn(std::vector<copy_note_t> warnings);

    copy_report_t& Report() noexcept { return report_; }

  private:
    void CheckReadsBack(const sent_item_t& sent) const;

    const copy_options_t& options_;
    item_sink_t& sink_;
    copy_observer_t& observer_;
    copy_report_t report_;
    const std::shared_ptr<progress::progress_base_t> progress_;
};

}  // namespace agent::copy
