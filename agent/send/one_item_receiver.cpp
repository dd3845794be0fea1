#include "agent/send/one_item_receiver.h"

#include <string>
#include <utility>

#include "agent/root/name_rules.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::send {

namespace {

/// Writes an item's content into the pipe and holds the far end to what it announced.
class pipe_dev_t final : public io::area::area_write_dev_t {
  public:
    pipe_dev_t(std::shared_ptr<area_pipe_t> pipe, const item_t& item, std::uint64_t size)
        : pipe_(std::move(pipe)), name_(ShownName(item.path)), at_(item.startOffset), size_(size), left_(size) {}

    std::string GetDisplayName() override { return name_; }
    void Write(std::shared_ptr<io::area::area_t> /*area*/) override { throw exc::CNotImplExc("pipe_dev_t", "Write"); }
    void Write(std::shared_ptr<io::area::IArea> area) override {
        const std::uint64_t count = area->GetSize();
        if (count == 0) {
            return;
        }
        if (area->GetOffset() != at_) {
            throw exc::CRuntimeExc("Bytes of [%1] came from [%2], but those from [%3] were next.", name_,
                                   area->GetOffset(), at_);
        }
        if (count > left_) {
            throw exc::CRuntimeExc("Item [%1] is longer than the announced [%2] bytes.", name_, size_);
        }
        at_ += count;
        left_ -= count;
        pipe_->Push(std::move(area));
    }
    void Finish(std::shared_ptr<synch::completion_port_t> /*port*/) override {
        if (left_ != 0) {
            throw exc::CRuntimeExc("Item [%1] ended after [%2] bytes, but [%3] were announced.", name_, size_ - left_,
                                   size_);
        }
    }

  private:
    const std::shared_ptr<area_pipe_t> pipe_;
    const std::string name_;
    std::uint64_t at_;
    const std::uint64_t size_;
    std::uint64_t left_;
};

std::uint64_t ContentOf(const item_t& item) {
    return item.kind == EItemKind::eFile && item.info.size >= item.startOffset ? item.info.size - item.startOffset : 0;
}

}  // namespace

one_item_receiver_t::one_item_receiver_t(send_request_t request, std::shared_ptr<area_pipe_t> pipe)
    : request_(std::move(request)), pipe_(std::move(pipe)) {}

one_item_receiver_t::~one_item_receiver_t() = default;

std::shared_ptr<io::area::area_write_dev_t> one_item_receiver_t::Receive(item_t item, std::uint64_t size,
                                                                         EReplace /*replace*/) {
    Check(item, size);
    taken_ = true;
    auto device = std::make_shared<pipe_dev_t>(pipe_, item, size);
    promised_.set_value(announced_t{std::move(item), size});
    return device;
}

void one_item_receiver_t::Close() {
    if (!taken_) {
        promised_.set_value(std::nullopt);
    }
}

void one_item_receiver_t::CheckTaken() const {
    if (!taken_) {
        throw exc::CRuntimeExc("[%1] was asked for, but nothing came.", request_.path);
    }
}

void one_item_receiver_t::Check(const item_t& item, std::uint64_t size) const {
    const std::string name = ShownName(item.path);
    if (taken_) {
        throw exc::CRuntimeExc("Item [%1] came besides the one that was asked for.", name);
    }
    if (item.path != request_.path) {
        throw exc::CRuntimeExc("Item [%1] came, but [%2] was asked for.", name, request_.path);
    }
    if (item.kind == EItemKind::eHardLink || item.kind == EItemKind::eCommit) {
        throw exc::CRuntimeExc("Items of kind [%1] are not taken: [%2].", NameOfKind(item.kind), name);
    }
    if (item.deferred || item.unsynced || item.resumable || !item.info.isSet()) {
        throw exc::CRuntimeExc("Item [%1] is not of the form that is read back.", name);
    }
    if (item.startOffset != request_.startOffset) {
        throw exc::CRuntimeExc("Item [%1] starts at [%2], but the bytes from [%3] were asked for.", name,
                               item.startOffset, request_.startOffset);
    }
    if (size != ContentOf(item)) {
        throw exc::CRuntimeExc("Item [%1] is announced with [%2] bytes, but has [%3].", name, size, ContentOf(item));
    }
}

}  // namespace agent::send
