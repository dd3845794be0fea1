#include "mirrowen/logging/log_section.h"

#include <string>

#include "mirrowen/logging/log_sink.h"
#include "mirrowen/logging/sink_holder.h"

namespace logging {

bool log_section_t::IsEnabled(ELevel level) const noexcept {
    return level >= GetThreshold();
}

void log_section_t::Write(ELevel level, std::string_view text, const std::exception* attached) noexcept {
    if (!IsEnabled(level)) {
        return;
    }
    try {
        CurrentSink()->Write({level, name_, text, attached != nullptr ? attached->what() : std::string_view()});
    } catch (...) {  // no memory for the sink itself: the line is lost, the caller goes on
    }
}

}  // namespace logging
