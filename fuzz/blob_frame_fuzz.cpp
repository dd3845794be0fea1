// Any bytes taken as a blob file's frame are refused with an exception of the house, which leaves the destination as it
// was, or give a buffer that is the same again after it was packed and unpacked.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "mirrowen/cnt/array.h"
#include "mirrowen/exc/runtime_exc.h"
#include "tarn/blobfs/lz4.h"

namespace {

using buffer_t = cnt::array_t<char>;
using tarn::blobfs::BlockHeader;
using tarn::blobfs::CLz4;

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void CheckSurvives(const std::shared_ptr<buffer_t>& unpacked) {
    BlockHeader header{};
    std::shared_ptr<buffer_t> packed;
    CLz4::compress(unpacked, packed, header);
    std::shared_ptr<buffer_t> again;
    CLz4::decompress(header, packed, again);
    Require(*again == *unpacked);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    BlockHeader header{};
    if (size < sizeof header) {
        return 0;
    }
    std::memcpy(&header, data, sizeof header);
    std::shared_ptr<buffer_t> unpacked;
    try {
        const auto length =
            CLz4::decompress(header, std::make_shared<buffer_t>(data + sizeof header, data + size), unpacked);
        Require(unpacked != nullptr && unpacked->size() == length && length == header.uncompressedLength);
    } catch (const exc::CRuntimeExc&) {
        Require(unpacked == nullptr);
        return 0;
    }
    CheckSurvives(unpacked);
    return 0;
}
