#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "brannock/transmission/block_source.h"
#include "brannock/transmission/entry_reports.h"
#include "brannock/transmission/processed_offset_holder.h"
#include "mirrowen/io/area/area_write_dev.h"
#include "mirrowen/progress/progress_base.h"

namespace brannock::transmission {

/// Who is told how far a transfer has come; either may be empty.
struct observers_t {
    std::shared_ptr<progress::progress_base_t> progress;
    std::shared_ptr<processed_offset_holder_t> offset;

    void OnBytes(std::uint64_t bytes) const {
        if (progress) {
            progress->OnProgress(bytes);
        }
    }
};

/// Hands blocks to the destination one by one and adds up what it took. One thread, the transfer's own.
class block_sink_t {
  public:
    block_sink_t(std::shared_ptr<io::area::area_write_dev_t> destination, observers_t observers);

    void Write(block_job_t job);
    /// Compares what was written with the sender's totals. Throws `exc::CRuntimeExc` "The far end sent [%1] bytes in
    /// [%2] blocks, but [%3] bytes in [%4] blocks were received.", "Item digest of kind [%1] is not supported." or "The
    /// digest of the received data is wrong.".
    void CheckTotalsExc(const end_record_t& end) const;
    /// `Finish` and the errors of its port.
    void Finish();
    /// What the destination has to say beyond that; a failure to say it is logged.
    std::vector<entry_report_t> TakeReports() noexcept;

  private:
    const std::shared_ptr<io::area::area_write_dev_t> destination_;
    const observers_t observers_;
    std::uint64_t bytes_ = 0;
    std::uint64_t blocks_ = 0;
    item_digest_t digest_;
};

}  // namespace brannock::transmission
