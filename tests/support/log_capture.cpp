#include "tests/support/log_capture.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace tests {

class log_capture_t::sink_t final : public logging::ILogSink {
  public:
    void Write(const logging::record_t& record) noexcept override {
        log_line_t line{record.level, std::string(record.section), std::string(record.text), std::string(record.error)};
        const std::scoped_lock lock(mutex_);
        lines_.push_back(std::move(line));
    }

    std::vector<log_line_t> Lines() const {
        const std::scoped_lock lock(mutex_);
        return lines_;
    }

    void Clear() {
        const std::scoped_lock lock(mutex_);
        lines_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::vector<log_line_t> lines_;
};

log_capture_t::log_capture_t(logging::ELevel threshold)
    : sink_(std::make_shared<sink_t>()),
      previousSink_(logging::SetSink(sink_)),
      previousThreshold_(logging::GetThreshold()) {
    logging::SetThreshold(threshold);
}

log_capture_t::~log_capture_t() {
    logging::SetThreshold(previousThreshold_);
    logging::SetSink(std::move(previousSink_));
}

std::vector<log_line_t> log_capture_t::Lines() const {
    return sink_->Lines();
}

std::vector<std::string> log_capture_t::Texts(logging::ELevel level) const {
    std::vector<std::string> texts;
    for (log_line_t& line : sink_->Lines()) {
        if (line.level == level) {
            texts.push_back(std::move(line.text));
        }
    }
    return texts;
}

bool log_capture_t::Has(logging::ELevel level, std::string_view text) const {
    return Count(level, text) != 0;
}

std::size_t log_capture_t::Count(logging::ELevel level, std::string_view text) const {
    const std::vector<std::string> texts = Texts(level);
    return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
}

std::string log_capture_t::Dump() const {
    static constexpr const char* names[] = {"trace", "info", "warn", "err", "off"};
    std::string dump;
    for (const log_line_t& line : sink_->Lines()) {
        dump.append(names[static_cast<std::size_t>(line.level)]).append(" ").append(line.section).append(": ");
        dump.append(line.text).append(line.error.empty() ? "" : " | ").append(line.error).append("\n");
    }
    return dump;
}

void log_capture_t::Clear() {
    sink_->Clear();
}

}  // namespace tests
