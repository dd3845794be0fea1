#include "mirrowen/io/acknowledge_protocol.h"

#include <string>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"
#include "mirrowen/logging/log_sink.h"

namespace io {

namespace {

constinit logging::log_section_t io_log("io");

// The longest beginning of `text` that fits and does not end inside a UTF-8 character.
std::string_view CutText(std::string_view text) {
    if (text.size() <= acknowledge_protocol_t::kMaxText) {
        return text;
    }
    std::size_t end = acknowledge_protocol_t::kMaxText;
    for (int step = 0; step < 3 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U; ++step) {
        --end;
    }
    return text.substr(0, end);
}

}  // namespace

void acknowledge_protocol_t::SendOk() {
    stream_.WriteU32(static_cast<std::uint32_t>(EKind::eOk));
    stream_.Flush();
}

void acknowledge_protocol_t::SendErr(std::string_view text) {
    Send(EKind::eError, text);
}

void acknowledge_protocol_t::SendAlreadyExistsErr(std::string_view text) {
    Send(EKind::eAlreadyExists, text);
}

void acknowledge_protocol_t::SafeSendErr(std::string_view text) noexcept {
    constexpr std::string_view kFailure = "Failed to send the error acknowledgement.";
    try {
        SendErr(text);
    } catch (const std::exception& error) {
        io_log.warn(kFailure, error);
    } catch (...) {
        io_log.warn(kFailure);
    }
}

void acknowledge_protocol_t::Send(EKind kind, std::string_view text) {
    stream_.WriteU32(static_cast<std::uint32_t>(kind));
    stream_.WriteString(CutText(text));
    stream_.Flush();
}

void acknowledge_protocol_t::WaitAck() {
    const std::uint32_t kind = stream_.ReadU32();
    switch (static_cast<EKind>(kind)) {
        case EKind::eOk:
            return;
        case EKind::eError:
            throw exc::CRuntimeExc(ReadText());
        case EKind::eAlreadyExists:
            throw exc::CAlreadyExistsExc(ReadText());
    }
    throw exc::CRuntimeExc("Unknown acknowledgement [%1] was received.", kind);
}

// Control bytes are made visible; the lines (one a cause) stay lines.
std::string acknowledge_protocol_t::ReadText() {
    const std::string raw = stream_.ReadString(kMaxText);
    std::string text;
    std::string_view rest = raw;
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        text += logging::EscapeControls(rest.substr(0, end));
        text += '\n';
        rest.remove_prefix(end + 1);
    }
    return text + logging::EscapeControls(rest);
}

}  // namespace io
