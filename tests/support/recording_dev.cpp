#include "tests/support/recording_dev.h"

#include <utility>

namespace tests {

recording_dev_t::recording_dev_t(std::string script) : script_(std::move(script)) {}

recording_dev_t::~recording_dev_t() = default;

std::size_t recording_dev_t::Read(void* buffer, std::size_t count) {
    const std::size_t taken = script_.copy(static_cast<char*>(buffer), count, position_);
    position_ += taken;
    return taken;
}

std::size_t recording_dev_t::Write(const void* buffer, std::size_t count) {
    written_.append(static_cast<const char*>(buffer), count);
    return count;
}

void recording_dev_t::Flush() {
    ++flushes_;
}

}  // namespace tests
