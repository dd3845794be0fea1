// Any bytes read as a request or as a finding of the query service are refused with an exception of the house, or give
// a value that survives being written and read again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "agent/query/query_wire.h"
#include "mirrowen/cnt/array.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/mem_dev.h"

namespace {

using device_t = io::mem_dev_tt<cnt::array_t<char>>;

template <class Read, class Write>
void CheckReads(const std::uint8_t* data, std::size_t size, const Read& read, const Write& write) {
    io::binary_stream_tt stream(std::make_shared<device_t>(std::make_shared<cnt::array_t<char>>(data, data + size)));
    decltype(read(stream)) value;
    try {
        value = read(stream);
    } catch (const exc::CRuntimeExc&) {
        return;
    }
    const auto device = std::make_shared<device_t>();
    io::binary_stream_tt again(device);
    write(again, value);
    device->Rewind();
    if (!(read(again) == value) || device->Remaining() != 0) {
        std::abort();
    }
}

agent::query::question_t ReadQuestion(io::binary_stream_tt& stream) {
    return agent::query::ReadQuestion(stream, static_cast<agent::query::EQuery>(stream.ReadU32()));
}

agent::query::finding_t ReadFinding(io::binary_stream_tt& stream) {
    agent::query::finding_t finding = agent::query::ReadFinding(stream);
    if (finding.fault.size() > agent::query::kMaxObjectText) {
        finding.fault = "longer, once it was made printable, than what is written of it";
    }
    return finding;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CheckReads(data, size, ReadQuestion, agent::query::WriteQuestion);
    CheckReads(data, size, ReadFinding, agent::query::WriteFinding);
    return 0;
}
