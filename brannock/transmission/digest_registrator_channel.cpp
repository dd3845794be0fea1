#include "brannock/transmission/digest_registrator_channel.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "brannock/transmission/channel_ends.h"

namespace brannock::transmission {

namespace {

class registrator_t final : public io::area::area_write_dev_t, public IDigestRegistrator {
  public:
    registrator_t(std::shared_ptr<io::area::area_write_dev_t> inner, digest_target_t target)
        : inner_(std::move(inner)), target_(std::move(target)) {}

    const digest_target_t& GetTarget() const override { return target_; }
    const std::shared_ptr<io::area::area_write_dev_t>& GetInner() const override { return inner_; }

    std::string GetDisplayName() override { return inner_->GetDisplayName(); }
    void Write(std::shared_ptr<io::area::area_t> area) override { inner_->Write(std::move(area)); }
    void Write(std::shared_ptr<io::area::IArea> area) override {
        for (std::uint64_t i = 0; i < area->GetBlockCount(); ++i) {
            if (const auto block = area->GetBlock(i)) {
                Register(*block);
            }
        }
        inner_->Write(std::move(area));
    }
    void Finish(std::shared_ptr<synch::completion_port_t> port) override { inner_->Finish(std::move(port)); }

  private:
    void Register(const io::block::CFibBlock& block) const {
        const std::uint64_t offset = block.GetIdentity().offset;
        if (!block.IsSparseBlock()) {
            const io::block::CContentBuf& content = block.GetDataBlock().GetContent();
            target_.Register(offset, digest::ComputeBlockDigest({content.Data(), content.Size()}));
            return;
        }
        const std::uint64_t size = block.GetIdentity().size;
        for (std::uint64_t at = 0; at < size; at += target_.blockSize) {
            const std::vector<std::byte> zeroes(static_cast<std::size_t>(std::min(target_.blockSize, size - at)));
            target_.Register(offset + at, digest::ComputeBlockDigest(zeroes));
        }
    }

    const std::shared_ptr<io::area::area_write_dev_t> inner_;
    const digest_target_t target_;
};

}  // namespace

std::shared_ptr<io::area::area_write_dev_t> digest_registrator_channel_t::Create(
    std::shared_ptr<io::area::area_write_dev_t> inner, std::shared_ptr<digest::digests_t> digests,
    std::uint64_t blockSize) {
    return std::make_shared<registrator_t>(std::move(inner), digest_target_t{std::move(digests), blockSize});
}

}  // namespace brannock::transmission
