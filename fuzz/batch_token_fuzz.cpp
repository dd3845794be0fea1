// Any bytes read as the token of a batch are refused with an exception of the house, or give a token that survives
// being written and read again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "mirrowen/cnt/array.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/mem_dev.h"
#include "tarn/batch/batch_area_dev_token.h"

namespace {

using device_t = io::mem_dev_tt<cnt::array_t<char>>;
using tarn::batch::CBatchAreaDevToken;

std::shared_ptr<CBatchAreaDevToken> Read(const std::shared_ptr<device_t>& device) {
    io::binary_stream_tt stream(device);
    return std::dynamic_pointer_cast<CBatchAreaDevToken>(CBatchAreaDevToken::Unserial(stream));
}

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto input = std::make_shared<device_t>(std::make_shared<cnt::array_t<char>>(data, data + size));
    std::shared_ptr<CBatchAreaDevToken> token;
    try {
        token = Read(input);
    } catch (const exc::CRuntimeExc&) {
        return 0;
    }
    const auto written = std::make_shared<device_t>();
    io::binary_stream_tt stream(written);
    token->Serial(stream);
    Require(written->GetOffset() == input->GetOffset());
    written->Rewind();
    const auto again = Read(written);
    Require(again->GetItems() == token->GetItems() && again->GetTotal() == token->GetTotal() &&
            again->GetFlagA() == token->GetFlagA() && again->GetFlagB() == token->GetFlagB());
    return 0;
}
