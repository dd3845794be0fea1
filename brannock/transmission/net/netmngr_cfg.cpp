#include "brannock/transmission/net/netmngr_cfg.h"

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/str_format.h"

namespace brannock::transmission::net {

namespace {

constexpr std::uint32_t kMagic = 0x31434E54;  // "TNC1"
constexpr std::uint32_t kKnownLength = 8;     // streams and window
constexpr std::uint32_t kMaxLength = 256;
constexpr std::uint32_t kFirstVersion = 1;
constexpr std::uint32_t kMaxWindow = 64;

[[noreturn]] void Refuse(const std::string& reason) {
    throw exc::CRuntimeExc("Invalid network configuration: %1.", reason);
}

}  // namespace

netmngr_cfg_t netmngr_cfg_t::GetRecommendedCfg(std::uint32_t /*transportVersion*/) {
    return {};  // one stream serves every version that there is
}

bool netmngr_cfg_t::IsCfgValid(const netmngr_cfg_t& cfg, std::uint32_t transportVersion) noexcept {
    return transportVersion == kFirstVersion && cfg.streams_ == 1 && cfg.window_ >= 1 && cfg.window_ <= kMaxWindow &&
           cfg.unknown_.empty();
}

void netmngr_cfg_t::Serial(io::binary_stream_tt& stream) const {
    stream.WriteU32(kMagic);
    stream.WriteU32(kKnownLength + static_cast<std::uint32_t>(unknown_.size()));
    stream.WriteU32(streams_);
    stream.WriteU32(window_);
    stream.WriteExact(unknown_.data(), unknown_.size());
}

netmngr_cfg_t netmngr_cfg_t::Unserial(io::binary_stream_tt& stream) {
    if (const std::uint32_t magic = stream.ReadU32(); magic != kMagic) {
        Refuse(util::str_format("it starts with [%1]", magic));
    }
    const std::uint32_t length = stream.ReadU32();
    if (length < kKnownLength || length > kMaxLength) {
        Refuse(util::str_format("its length is [%1]", length));
    }
    netmngr_cfg_t cfg;
    cfg.streams_ = stream.ReadU32();
    cfg.window_ = stream.ReadU32();
    cfg.unknown_ = stream.ReadBytes(length - kKnownLength);
    return cfg;
}

}  // namespace brannock::transmission::net
