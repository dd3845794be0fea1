#include "brannock/transmission/frame_payload.h"

#include <algorithm>

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/io/little_endian.h"
#include "mirrowen/logging/log_sink.h"
#include "mirrowen/util/str_format.h"

namespace brannock::transmission {

namespace {

[[noreturn]] void Refuse(std::string_view reason) {
    throw exc::CRuntimeExc("Broken block stream: %1.", reason);
}

// The longest beginning of `text` that fits and does not end inside a UTF-8 character.
std::string_view Cut(std::string_view text, std::size_t maximum) {
    if (text.size() <= maximum) {
        return text;
    }
    std::size_t end = maximum;
    for (int step = 0; step < 3 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U; ++step) {
        --end;
    }
    return text.substr(0, end);
}

std::string Escape(std::string_view text) {
    std::string escaped;
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        escaped += logging::EscapeControls(text.substr(0, end));
        escaped += '\n';
        text.remove_prefix(end + 1);
    }
    return escaped + logging::EscapeControls(text);
}

std::string_view AsText(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

class payload_writer_t {
  public:
    template <std::unsigned_integral T>
    void Put(T value) {
        const std::size_t at = bytes_.size();
        bytes_.resize(at + sizeof(T));
        io::EncodeLittleEndian(value, bytes_.data() + at);
    }
    void PutBytes(std::span<const std::byte> bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
    void PutText(std::string_view text, std::size_t maximum) {
        const std::string_view part = Cut(text, maximum);
        Put(static_cast<std::uint32_t>(part.size()));
        PutBytes(std::as_bytes(std::span(part)));
    }
    payload_t Take() { return std::move(bytes_); }

  private:
    payload_t bytes_;
};

class payload_reader_t {
  public:
    explicit payload_reader_t(std::span<const std::byte> rest) : rest_(rest) {}

    std::span<const std::byte> GetBytes(std::size_t count) {
        if (count > rest_.size()) {
            Refuse("a payload is shorter than what it holds");
        }
        const auto part = rest_.first(count);
        rest_ = rest_.subspan(count);
        return part;
    }
    template <std::unsigned_integral T>
    T Get() {
        return io::DecodeLittleEndian<T>(GetBytes(sizeof(T)).data());
    }
    std::string GetText(std::size_t maximum) {
        const auto length = Get<std::uint32_t>();
        if (length > maximum) {
            Refuse(util::str_format("a text has [%1] bytes", length));
        }
        return std::string(AsText(GetBytes(length)));
    }
    void End() const {
        if (!rest_.empty()) {
            Refuse("a payload is longer than what it holds");
        }
    }

  private:
    std::span<const std::byte> rest_;
};

std::vector<entry_report_t> GetReports(payload_reader_t& reader) {
    const auto count = reader.Get<std::uint32_t>();
    if (count > kMaxReports) {
        Refuse(util::str_format("a status has [%1] entries", count));
    }
    std::vector<entry_report_t> reports;  // grows as the bytes show up
    for (std::uint32_t i = 0; i < count; ++i) {
        entry_report_t report;
        report.kind = reader.Get<std::uint32_t>();
        report.entry = reader.Get<std::uint64_t>();
        report.path = reader.GetText(kMaxReportPath);
        report.text = reader.GetText(kMaxReportText);
        reports.push_back(std::move(report));
    }
    return reports;
}

}  // namespace

payload_t EncodeEnd(const end_record_t& end) {
    payload_writer_t writer;
    writer.Put(end.bytes);
    writer.Put(end.blocks);
    writer.Put(static_cast<std::uint32_t>(end.kind));
    writer.Put(std::uint32_t{0});  // reserved
    writer.PutBytes(end.digest);
    return writer.Take();
}

payload_t EncodeText(std::string_view text) {
    payload_writer_t writer;
    writer.PutBytes(std::as_bytes(std::span(Cut(text, kMaxCauseText))));
    return writer.Take();
}

payload_t EncodeStatus(const status_record_t& status) {
    payload_writer_t writer;
    writer.Put(static_cast<std::uint32_t>(status.result));
    writer.PutText(status.text, kMaxCauseText);
    const std::size_t count = std::min(status.reports.size(), kMaxReports);
    writer.Put(static_cast<std::uint32_t>(count));
    for (const entry_report_t& report : std::span(status.reports).first(count)) {
        writer.Put(report.kind);
        writer.Put(report.entry);
        writer.PutText(report.path, kMaxReportPath);
        writer.PutText(report.text, kMaxReportText);
    }
    return writer.Take();
}

end_record_t DecodeEnd(std::span<const std::byte> payload) {
    payload_reader_t reader(payload);
    end_record_t end;
    end.bytes = reader.Get<std::uint64_t>();
    end.blocks = reader.Get<std::uint64_t>();
    end.kind = static_cast<EItemDigest>(reader.Get<std::uint32_t>());
    if (reader.Get<std::uint32_t>() != 0) {
        Refuse("reserved bytes are in use");
    }
    std::ranges::copy(reader.GetBytes(end.digest.size()), end.digest.begin());
    reader.End();
    return end;
}

std::string DecodeText(std::span<const std::byte> payload) {
    return Escape(AsText(payload));
}

status_record_t DecodeStatus(std::span<const std::byte> payload) {
    payload_reader_t reader(payload);
    status_record_t status;
    const auto result = reader.Get<std::uint32_t>();
    if (result > static_cast<std::uint32_t>(EItemResult::eAlreadyExists)) {
        Refuse(util::str_format("unknown result [%1]", result));
    }
    status.result = static_cast<EItemResult>(result);
    status.text = Escape(reader.GetText(kMaxCauseText));
    status.reports = GetReports(reader);
    reader.End();
    return status;
}

std::string TextOf(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& known) {
        return known.what();
    } catch (...) {
        return "Unknown error.";
    }
}

status_record_t StatusOf(const std::exception_ptr& error) {
    status_record_t status{EItemResult::eFailed, TextOf(error), {}};
    try {
        std::rethrow_exception(error);
    } catch (const exc::CAlreadyExistsExc&) {
        status.result = EItemResult::eAlreadyExists;
    } catch (...) {  // NOLINT: only the one type makes a difference
    }
    return status;
}

std::exception_ptr ErrorOf(const status_record_t& status) {
    if (status.result == EItemResult::eAlreadyExists) {
        return std::make_exception_ptr(exc::CAlreadyExistsExc(status.text));
    }
    return std::make_exception_ptr(exc::CRuntimeExc(status.text));
}

}  // namespace brannock::transmission
