#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mirrowen/export.h"
#include "mirrowen/io/binary_stream.h"

namespace io {

/// The answers of the upload dialogue. A record is a u32 kind and, unless the kind is ok, a string with the text, as
/// docs/formats.md ("Acknowledgement") gives it. One thread at a time, as the stream below it.
class MIRROWEN_API acknowledge_protocol_t {
  public:
    enum class EKind : std::uint32_t { eOk = 0, eError = 1, eAlreadyExists = 2 };

    /// Texts longer than this are cut when sent and refused when received.
    static constexpr std::uint32_t kMaxText = 8192;

    /// `stream` must outlive this object.
    explicit acknowledge_protocol_t(binary_stream_tt& stream) noexcept : stream_(stream) {}

    void SendOk();
    void SendErr(std::string_view text);
    void SendAlreadyExistsErr(std::string_view text);
    /// As SendErr, but a failure to send is logged as a warning and swallowed.
    void SafeSendErr(std::string_view text) noexcept;

    /// Reads one record. Ok returns; an error throws `exc::CRuntimeExc` with the peer's text (control bytes escaped,
    /// lines kept); already-exists throws `exc::CAlreadyExistsExc` with it. Another kind throws `exc::CRuntimeExc`
    /// "Unknown acknowledgement [%1] was received."
    void WaitAck();

    /// The text that follows the kinds error and already-exists, as WaitAck throws it. For dialogues that read the kind
    /// themselves.
    std::string ReadText();

  private:
    void Send(EKind kind, std::string_view text);

    binary_stream_tt& stream_;
};

}  // namespace io
