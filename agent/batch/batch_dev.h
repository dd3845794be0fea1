#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "agent/batch/batch_plan.h"
#include "agent/staging/received_batch.h"
#include "mirrowen/cnt/array.h"
#include "mirrowen/io/area/area_write_dev.h"
#include "mirrowen/pool/byte_budget.h"

namespace agent::batch {

/// Where a batch gets its memory.
struct batch_memory_t {
    pool::byte_budget_t& budget = pool::byte_budget_t::Process();
    std::chrono::milliseconds patience = std::chrono::seconds(60);  ///< until others have given some back
};

/// Receives a batch: gathers its frame in memory, and in `Finish` unpacks it, judges it as a whole and hands the
/// entries over. The memory for both, the frame and what it unpacks to, is leased from the process's budget before the
/// first byte comes. Nothing of a batch that fails is kept. One thread at a time.
class batch_dev_t final : public io::area::area_write_dev_t {
  public:
    /// `size`: bytes of the frame. Throws `exc::CRuntimeExc` "A batch of [%1] bytes is refused: it has [%2] to [%3]."
    /// and the budget's "Timed out waiting for buffer memory.".
    batch_dev_t(batch_plan_t plan, std::uint64_t size, std::shared_ptr<IBatchReceiver> receiver,
                batch_memory_t memory = {});
    ~batch_dev_t() override;

    /// "batch of [%1] entries".
    std::string GetDisplayName() override;
    /// Throws `exc::CNotImplExc`: bare bytes are not taken.
    void Write(std::shared_ptr<io::area::area_t> area) override;
    /// Throws "A batch has more than the announced [%1] bytes." and the errors of blocks that do not follow one another
    /// or are packed.
    void Write(std::shared_ptr<io::area::IArea> area) override;

    /// Throws "A batch ended after [%1] bytes, but [%2] were announced.", "A batch unpacks to [%1] bytes, but [%2] were
    /// announced.", the errors of `tarn::blobfs::CLz4::decompress` and CheckContents; then nothing was applied. What
    /// becomes of the single entries is the commit's to tell.
    void Finish(std::shared_ptr<synch::completion_port_t> port) override;

  private:
    using buffer_t = cnt::array_t<char>;

    void Append(std::uint64_t offset, std::uint64_t count, const char* bytes);
    std::shared_ptr<buffer_t> Unpack();

    batch_plan_t plan_;
    const std::uint64_t size_;
    const std::shared_ptr<IBatchReceiver> receiver_;
    pool::byte_lease_t lease_;
    buffer_t frame_;
};

}  // namespace agent::batch
