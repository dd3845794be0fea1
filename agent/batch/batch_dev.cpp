#include "agent/batch/batch_dev.h"

#include <cstring>
#include <utility>

#include "agent/batch/batch_contents.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str_format.h"
#include "tarn/blobfs/lz4.h"
#include "tarn/blocks/block_content.h"

namespace agent::batch {

namespace {

using tarn::blobfs::BlockHeader;

constexpr std::uint64_t kLeastFrame = sizeof(BlockHeader) + 1;

pool::byte_lease_t Lease(const batch_plan_t& plan, std::uint64_t size, const batch_memory_t& memory) {
    if (size < kLeastFrame || size > kMaxBatchPayload) {
        throw exc::CRuntimeExc("A batch of [%1] bytes is refused: it has [%2] to [%3].", size, kLeastFrame,
                               kMaxBatchPayload);
    }
    // At once: whoever held one part and waited for the other could wait for ever.
    return memory.budget.Acquire(size + plan.payload, {synch::deadline_t::After(memory.patience), {}});
}

/// What the pieces of the entries point into, and the right to it.
struct content_t {
    pool::byte_lease_t lease;
    std::shared_ptr<const cnt::array_t<char>> payload;
};

}  // namespace

batch_dev_t::batch_dev_t(batch_plan_t plan, std::uint64_t size, std::shared_ptr<IBatchReceiver> receiver,
                         batch_memory_t memory)
    : plan_(std::move(plan)), size_(size), receiver_(std::move(receiver)), lease_(Lease(plan_, size, memory)) {
    frame_.reserve(size);
}

batch_dev_t::~batch_dev_t() = default;

std::string batch_dev_t::GetDisplayName() {
    return util::str_format("batch of [%1] entries", plan_.entries.size());
}

void batch_dev_t::Write(std::shared_ptr<io::area::area_t> /*area*/) {
    throw exc::CNotImplExc("batch_dev_t", "Write");
}

void batch_dev_t::Write(std::shared_ptr<io::area::IArea> area) {
    if (area->GetKind() == io::area::EAreaKind::eSparse && area->GetBlockCount() == 0) {
        Append(area->GetOffset(), area->GetSize(), nullptr);
        return;
    }
    tarn::blocks::ForEachBlock(*area, [this](const pool::CPoolPtr<io::block::CFibBlock>& block) {
        const io::block::SBlockIdentity& identity = block->GetIdentity();
        if (block->IsSparseBlock()) {
            Append(identity.offset, identity.size, nullptr);
            return;
        }
        tarn::blocks::CheckNotPacked(*block);
        const auto content = tarn::blocks::ContentOf(*block);
        Append(identity.offset, content.size(), reinterpret_cast<const char*>(content.data()));
    });
}

/// Zeroes when there are no `bytes`.
void batch_dev_t::Append(std::uint64_t offset, std::uint64_t count, const char* bytes) {
    tarn::blocks::CheckFollows(offset, frame_.size());
    if (count > size_ - frame_.size()) {
        throw exc::CRuntimeExc("A batch has more than the announced [%1] bytes.", size_);
    }
    if (bytes == nullptr) {
        frame_.resize(frame_.size() + count);
    } else {
        frame_.insert(frame_.end(), bytes, bytes + count);
    }
}

void batch_dev_t::Finish(std::shared_ptr<synch::completion_port_t> /*port*/) {
    const auto content = std::make_shared<content_t>();
    content->payload = Unpack();
    received_batch_t batch;
    batch.entries = CheckContents(plan_, *content->payload);
    batch.replace = plan_.replace;
    content->lease = std::move(lease_);
    batch.content = content;
    receiver_->Apply(std::move(batch));
}

std::shared_ptr<batch_dev_t::buffer_t> batch_dev_t::Unpack() {
    if (frame_.size() != size_) {
        throw exc::CRuntimeExc("A batch ended after [%1] bytes, but [%2] were announced.", frame_.size(), size_);
    }
    BlockHeader header;
    std::memcpy(&header, frame_.data(), sizeof header);
    if (header.uncompressedLength != plan_.payload) {
        throw exc::CRuntimeExc("A batch unpacks to [%1] bytes, but [%2] were announced.",
                               std::uint32_t{header.uncompressedLength}, plan_.payload);
    }
    const auto block = std::make_shared<buffer_t>(std::exchange(frame_, {}));
    block->erase(block->begin(), block->begin() + sizeof header);
    std::shared_ptr<buffer_t> payload;
    tarn::blobfs::CLz4::decompress(header, block, payload);
    return payload;
}

}  // namespace agent::batch
