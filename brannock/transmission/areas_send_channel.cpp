#include "brannock/transmission/areas_send_channel.h"

#include <string>
#include <string_view>
#include <utility>

#include "brannock/transmission/channel_ends.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"

namespace brannock::transmission {

namespace {

constexpr std::string_view kClass = "areas_send_channel_t";

class send_end_t final : public io::area::area_write_dev_t, public IChannelEnd {
  public:
    explicit send_end_t(channel_spec_t channel) : channel_(std::move(channel)) {}

    const channel_spec_t& GetChannel() const override { return channel_; }
    std::string GetDisplayName() override { return "block stream"; }
    void Write(std::shared_ptr<io::area::area_t> /*area*/) override { throw exc::CNotImplExc(kClass, "Write"); }
    void Write(std::shared_ptr<io::area::IArea> /*area*/) override { throw exc::CNotImplExc(kClass, "Write"); }
    void Finish(std::shared_ptr<synch::completion_port_t> /*port*/) override {
        throw exc::CNotImplExc(kClass, "Finish");
    }

  private:
    const channel_spec_t channel_;
};

}  // namespace

std::shared_ptr<io::area::area_write_dev_t> areas_send_channel_t::Create(std::shared_ptr<io::io_dev_t> channel,
                                                                         const net::netmngr_cfg_t& cfg,
                                                                         std::uint32_t transportVersion) {
    if (!net::netmngr_cfg_t::IsCfgValid(cfg, transportVersion)) {
        throw exc::CRuntimeExc("A transfer cannot run over [%1] streams with a window of [%2] blocks.",
                               cfg.GetStreams(), cfg.GetWindow());
    }
    return std::make_shared<send_end_t>(channel_spec_t{std::move(channel), cfg});
}

}  // namespace brannock::transmission
