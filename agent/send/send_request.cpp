#include "agent/send/send_request.h"

#include <algorithm>
#include <string_view>

#include "agent/root/name_rules.h"
#include "brannock/transmission/entry_reports.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_sink.h"

namespace agent::send {

namespace {

using brannock::transmission::kMaxReportPath;
using brannock::transmission::kMaxReports;
using brannock::transmission::kMaxReportText;

std::string_view Cut(const std::string& text, std::size_t most) {
    return std::string_view(text).substr(0, most);
}

}  // namespace

void WriteRequest(io::binary_stream_tt& stream, const send_request_t& request) {
    stream.WriteU32(static_cast<std::uint32_t>(ERequest::eItem));
    stream.WriteString(request.path);
    stream.WriteU64(request.startOffset);
    stream.WriteU32(request.blockSize);
    stream.WriteU32(static_cast<std::uint32_t>(request.compression));
}

send_request_t ReadRequest(io::binary_stream_tt& stream) {
    send_request_t request;
    request.path = stream.ReadString(kMaxNameBytes);
    request.startOffset = stream.ReadU64();
    request.blockSize = stream.ReadU32();
    request.compression = static_cast<io::block::EBufTransformType>(stream.ReadU32());
    return request;
}

void WriteNotes(io::binary_stream_tt& stream, const std::vector<copy::copy_note_t>& notes) {
    const std::size_t count = std::min(notes.size(), kMaxReports);
    stream.WriteU32(static_cast<std::uint32_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        stream.WriteString(Cut(notes[i].path, kMaxReportPath));
        stream.WriteString(Cut(notes[i].text, kMaxReportText));
    }
}

std::vector<copy::copy_note_t> ReadNotes(io::binary_stream_tt& stream) {
    const std::uint32_t count = stream.ReadU32();
    if (count > kMaxReports) {
        throw exc::CRuntimeExc("List of [%1] notes is longer than the allowed [%2].", count, kMaxReports);
    }
    std::vector<copy::copy_note_t> notes;
    for (std::uint32_t i = 0; i < count; ++i) {
        copy::copy_note_t note;
        note.path = logging::EscapeControls(stream.ReadString(kMaxReportPath));
        note.text = logging::EscapeControls(stream.ReadString(kMaxReportText));
        notes.push_back(std::move(note));
    }
    return notes;
}

}  // namespace agent::send
