#include "brannock/transmission/entry_reports.h"

namespace brannock::transmission {

IEntryReporter::~IEntryReporter() = default;
IEntryReportSink::~IEntryReportSink() = default;

}  // namespace brannock::transmission
