#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include "mirrowen/logging/sink_holder.h"

namespace logging {

namespace {

spdlog::level::level_enum to_spdlog(ELevel level) {
    switch (level) {
        case ELevel::eTrace:
            return spdlog::level::trace;
        case ELevel::eInfo:
            return spdlog::level::info;
        case ELevel::eWarn:
            return spdlog::level::warn;
        case ELevel::eErr:
            return spdlog::level::err;
        case ELevel::eOff:
            break;
    }
    return spdlog::level::off;
}

class stderr_sink_t final : public ILogSink {
  public:
    stderr_sink_t() : logger_("tarn", std::make_shared<spdlog::sinks::stderr_sink_mt>()) {
        logger_.set_level(spdlog::level::trace);
        logger_.set_pattern("%Y-%m-%dT%H:%M:%S.%f%z %l %v");
    }

    void Write(const record_t& record) noexcept override {
        try {
            std::string line(record.section);
            line += ": ";
            line += EscapeControls(record.text);
            if (!record.error.empty()) {
                line += " | ";
                line += EscapeControls(record.error);
            }
            logger_.log(to_spdlog(record.level), spdlog::string_view_t(line.data(), line.size()));
        } catch (...) {  // out of memory: the line is lost
        }
    }

  private:
    spdlog::logger logger_;
};

}  // namespace

std::shared_ptr<ILogSink> MakeStderrSink() {
    return std::make_shared<stderr_sink_t>();
}

}  // namespace logging
