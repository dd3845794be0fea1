#include "agent/copy/entry_outcome.h"

#include "agent/staging/report_kind.h"
#include "mirrowen/logging/log_sink.h"

namespace agent::copy {

void entry_outcome_t::Add(const std::vector<brannock::transmission::entry_report_t>& reports) {
    for (const auto& report : reports) {
        std::string text = logging::EscapeControls(report.text);
        if (report.kind == kEntryFailed) {
            outcome_.lost.push_back({report.entry, std::move(text)});
        } else {
            outcome_.warnings.push_back({logging::EscapeControls(report.path), std::move(text)});
            outcome_.warned.insert(report.entry);
        }
    }
}

}  // namespace agent::copy
