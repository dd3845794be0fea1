#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "brannock/export.h"

namespace brannock::transmission {

/// What became of one entry of an item that stands for several files. The kinds belong to the devices at the two ends;
/// the engine carries them.
struct entry_report_t {
    std::uint32_t kind = 0;
    std::uint64_t entry = 0;  ///< the entry's number in its item
    std::string path;         ///< at most kMaxReportPath bytes, longer ones are cut on their way
    std::string text;         ///< at most kMaxReportText bytes, longer ones are cut on their way

    friend bool operator==(const entry_report_t&, const entry_report_t&) = default;
};

inline constexpr std::size_t kMaxReports = 1024;
inline constexpr std::size_t kMaxReportPath = 4095;
inline constexpr std::size_t kMaxReportText = 512;

/// A destination that has more to say than how the writing ended. The engine asks by cast, once, after `Finish` or
/// after the failure, on the thread that wrote; the first kMaxReports travel to the far end.
class BRANNOCK_API IEntryReporter {
  public:
    virtual ~IEntryReporter();
    virtual std::vector<entry_report_t> TakeEntryReports() = 0;
};

/// A source that wants to hear what the far end's destination reported. The engine asks by cast and calls it at most
/// once, after everything was sent and before `Transmit` returns or throws. The texts are the peer's, not escaped.
class BRANNOCK_API IEntryReportSink {
  public:
    virtual ~IEntryReportSink();
    virtual void OnEntryReports(const std::vector<entry_report_t>& reports) = 0;
};

}  // namespace brannock::transmission
