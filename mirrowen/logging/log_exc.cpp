#include "mirrowen/logging/log_exc.h"

namespace logging {

namespace {

constinit log_section_t exc_log{"exc"};

}  // namespace

void LogExc(const std::exception& error, std::string_view context) noexcept {
    exc_log.err(context, error);
}

}  // namespace logging
