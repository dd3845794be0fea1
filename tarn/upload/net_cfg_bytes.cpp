#include "tarn/upload/net_cfg_bytes.h"

#include <memory>

#include "mirrowen/cnt/array.h"
#include "mirrowen/io/mem_dev.h"

namespace tarn::upload {

void WriteNetCfg(io::binary_stream_tt& stream, const brannock::transmission::net::netmngr_cfg_t& cfg) {
    const auto bytes = std::make_shared<cnt::array_t<char>>();
    io::binary_stream_tt memory(std::make_shared<io::mem_dev_tt<cnt::array_t<char>>>(bytes));
    cfg.Serial(memory);
    stream.WriteExact(bytes->data(), bytes->size());
    stream.Flush();
}

}  // namespace tarn::upload
