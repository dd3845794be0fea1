#include "brannock/transmission/block_sink.h"

#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_exc.h"
#include "mirrowen/synch/completion_port.h"

namespace brannock::transmission {

block_sink_t::block_sink_t(std::shared_ptr<io::area::area_write_dev_t> destination, observers_t observers)
    : destination_(std::move(destination)), observers_(std::move(observers)) {}

void block_sink_t::Write(block_job_t job) {
    using io::block::CFibBlock;
    const io::block::SBlockIdentity identity{job.index, job.offset, job.size};
    pool::CPoolPtr<CFibBlock> block;
    if (job.IsZero()) {
        digest_.AddZeroes(job.size);
        block = CFibBlock::NewSparseBlock(job.offset, job.index, job.size);
    } else {
        digest_.Add(job.GetRaw());
        block = CFibBlock::NewBlock(identity, {std::move(job.content), job.transform, job.encrypted});
    }
    const auto area = std::make_shared<io::area::CDataArea>(job.index, std::move(block));
    area->GetMeta().SetReadSize(bytes_ + job.size);
    destination_->Write(std::shared_ptr<io::area::IArea>(area));
    bytes_ += job.size;
    ++blocks_;
    if (observers_.offset) {
        observers_.offset->SetOffset(job.offset + job.size);
    }
    observers_.OnBytes(job.size);
}

void block_sink_t::CheckTotalsExc(const end_record_t& end) const {
    if (end.bytes != bytes_ || end.blocks != blocks_) {
        throw exc::CRuntimeExc(
            "The far end sent [%1] bytes in [%2] blocks, but [%3] bytes in [%4] blocks were received.", end.bytes,
            end.blocks, bytes_, blocks_);
    }
    if (end.kind != EItemDigest::eXxh3) {
        throw exc::CRuntimeExc("Item digest of kind [%1] is not supported.", static_cast<std::uint32_t>(end.kind));
    }
    if (end.digest != digest_.Get()) {
        throw exc::CRuntimeExc("The digest of the received data is wrong.");
    }
}

void block_sink_t::Finish() {
    const auto port = std::make_shared<synch::completion_port_t>();
    destination_->Finish(port);
    port->CheckForErrorsExc();
}

std::vector<entry_report_t> block_sink_t::TakeReports() noexcept {
    try {
        if (auto* const reporter = dynamic_cast<IEntryReporter*>(destination_.get())) {
            return reporter->TakeEntryReports();
        }
    } catch (const std::exception& error) {
        logging::LogExc(error, "At TakeEntryReports()");
    }
    return {};
}

}  // namespace brannock::transmission
