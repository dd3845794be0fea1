#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "brannock/transmission/entry_reports.h"

/// What END, ABORT and STATUS carry. docs/protocol.md ("Block stream") gives the layouts.
namespace brannock::transmission {

using payload_t = std::vector<std::byte>;

/// Texts of ABORT and STATUS: longer ones are cut when sent and refused when received.
inline constexpr std::size_t kMaxCauseText = 8192;

enum class EItemDigest : std::uint32_t { eNone = 0, eXxh3 = 1, eSha256 = 2 };

/// The totals of an item.
struct end_record_t {
    std::uint64_t bytes = 0;
    std::uint64_t blocks = 0;
    EItemDigest kind = EItemDigest::eXxh3;
    std::array<std::byte, 32> digest{};

    friend bool operator==(const end_record_t&, const end_record_t&) = default;
};

inline constexpr std::size_t kEndPayloadSize = 56;

enum class EItemResult : std::uint32_t { eOk = 0, eFailed = 1, eAlreadyExists = 2 };

/// How the receiver's part of an item ended.
struct status_record_t {
    EItemResult result = EItemResult::eOk;
    std::string text;
    std::vector<entry_report_t> reports;

    friend bool operator==(const status_record_t&, const status_record_t&) = default;
};

inline constexpr std::size_t kMaxStatusPayload =
    12 + kMaxCauseText + kMaxReports * (20 + kMaxReportPath + kMaxReportText);

payload_t EncodeEnd(const end_record_t& end);
payload_t EncodeText(std::string_view text);
payload_t EncodeStatus(const status_record_t& status);

/// The readers check every length against what is there. A payload that is not what it should be throws
/// `exc::CRuntimeExc` "Broken block stream: %1.".
end_record_t DecodeEnd(std::span<const std::byte> payload);
/// The peer's text with control bytes made visible; its lines stay lines.
std::string DecodeText(std::span<const std::byte> payload);
status_record_t DecodeStatus(std::span<const std::byte> payload);

/// What a failure becomes in a STATUS frame.
status_record_t StatusOf(const std::exception_ptr& error);
/// The whole story of a failure, as ABORT and STATUS carry it.
std::string TextOf(const std::exception_ptr& error);
/// What a STATUS frame that is not ok becomes at the sender: `exc::CAlreadyExistsExc` or `exc::CRuntimeExc` with the
/// text.
std::exception_ptr ErrorOf(const status_record_t& status);

}  // namespace brannock::transmission
