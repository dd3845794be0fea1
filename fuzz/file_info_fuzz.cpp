// Any bytes read as a file info are refused with an exception of the house, or give a record that survives being
// written and read again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "mirrowen/cnt/array.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/mem_dev.h"
#include "mirrowen/util/file_info.h"

namespace {

using device_t = io::mem_dev_tt<cnt::array_t<char>>;

void CheckSurvives(const util::CFileInfo& info) {
    const auto device = std::make_shared<device_t>();
    io::binary_stream_tt stream(device);
    info.Serialize(stream);
    device->Rewind();
    if (!(util::CFileInfo::fromStream(stream) == info) || device->Remaining() != 0) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    io::binary_stream_tt stream(std::make_shared<device_t>(std::make_shared<cnt::array_t<char>>(data, data + size)));
    util::CFileInfo info;
    try {
        info.DeSerialize(stream);
    } catch (const exc::CRuntimeExc&) {
        if (info.isSet()) {
            std::abort();  // a failure leaves the record as it was
        }
        return 0;
    }
    CheckSurvives(info);
    return 0;
}
