#include "agent/batch/batch_format.h"

#include <charconv>
#include <optional>

#include "agent/root/name_rules.h"
#include "mirrowen/exc/runtime_exc.h"

namespace agent::batch {

namespace {

constexpr std::size_t kGuidDigits = 2 * sizeof(guid::guid_t::bytes_t);
constexpr std::string_view kDigits = "0123456789abcdef";

std::optional<guid::guid_t> ParseGuid(std::string_view text) {
    guid::guid_t::bytes_t bytes{};
    for (std::size_t at = 0; at < kGuidDigits; ++at) {
        const std::size_t digit = kDigits.find(text[at]);
        if (digit == std::string_view::npos) {
            return std::nullopt;
        }
        bytes[at / 2] = static_cast<std::uint8_t>(bytes[at / 2] * std::size_t{16} + digit);
    }
    return guid::guid_t(bytes);
}

/// A decimal number from 1 on without zeroes before it.
std::optional<std::uint64_t> ParseNumber(std::string_view text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || text.front() == '0') {
        return std::nullopt;
    }
    return number;
}

}  // namespace

std::string FormatBatchName(const batch_name_t& name) {
    std::string text;
    text.reserve(kGuidDigits + 1 + 4);
    for (const std::uint8_t byte : name.copy.Bytes()) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 15U];
    }
    return text + "/" + std::to_string(name.entry + 1);
}

batch_name_t ParseBatchName(std::string_view text) {
    if (text.size() > kGuidDigits + 1 && text[kGuidDigits] == '/') {
        const auto copy = ParseGuid(text.substr(0, kGuidDigits));
        const auto number = ParseNumber(text.substr(kGuidDigits + 1));
        if (copy && number) {
            return {*copy, *number - 1};
        }
    }
    throw exc::CRuntimeExc("[%1] names no entry of a batch.", ShownName(text));
}

}  // namespace agent::batch
