#include "brannock/transmission/areas_recv_channel.h"

#include <utility>

#include "mirrowen/exc/not_impl_exc.h"

namespace brannock::transmission {

areas_recv_channel_t::areas_recv_channel_t(std::string name, std::shared_ptr<io::io_dev_t> channel,
                                           const net::netmngr_cfg_t& cfg, std::uint32_t /*transportVersion*/)
    : name_(std::move(name)), channel_{std::move(channel), cfg} {}

areas_recv_channel_t::~areas_recv_channel_t() = default;

std::shared_ptr<io::area::IArea> areas_recv_channel_t::ReadNext() {
    throw exc::CNotImplExc("areas_recv_channel_t", "ReadNext");
}

std::string areas_recv_channel_t::GetDisplayName() {
    return name_;
}

void areas_recv_channel_t::SetEmptyBlocksMaximum(std::uint64_t /*maximum*/) {}

}  // namespace brannock::transmission
