#include "mirrowen/exc/regen.h"

#include <exception>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/logging/log_section.h"

namespace exc::detail {

namespace {

constinit logging::log_section_t exc_log{"exc"};

}  // namespace

void RegenText(std::string text) {
    throw CRuntimeExc(std::move(text), std::current_exception());
}

void RegenTraceText(std::string text) {
    CRuntimeExc error(std::move(text), std::current_exception());
    exc_log.tr(error.what());
    throw error;
}

}  // namespace exc::detail
