#include "mirrowen/progress/cout_progress.h"

#include <limits>
#include <string>

namespace progress {

namespace {

constexpr std::uint64_t kNothingShown = std::numeric_limits<std::uint64_t>::max();

// The whole percent, 100 for anything at or past the size; no product of large numbers.
std::uint64_t Percent(std::uint64_t done, std::uint64_t size) {
    if (done >= size) {
        return 100;
    }
    if (done <= std::numeric_limits<std::uint64_t>::max() / 100) {
        return done * 100 / size;
    }
    return done / (size / 100) > 99 ? 99 : done / (size / 100);
}

}  // namespace

cout_progress_t::cout_progress_t(std::uint64_t size, bool newLineAtEnd, io::IInOut& console)
    : size_(size), newLineAtEnd_(newLineAtEnd), console_(console) {}

cout_progress_t::~cout_progress_t() {
    if (!newLineAtEnd_ || shown_ == kNothingShown) {
        return;
    }
    try {
        console_.Print("\n");
    } catch (...) {  // a console that fails costs the line end only
    }
}

void cout_progress_t::OnProgress(std::uint64_t bytes) {
    done_ = bytes > std::numeric_limits<std::uint64_t>::max() - done_ ? std::numeric_limits<std::uint64_t>::max() - 1
                                                                      : done_ + bytes;
    const std::uint64_t value = size_ == 0 ? done_ : Percent(done_, size_);
    if (value == shown_) {
        return;
    }
    shown_ = value;
    console_.Print("\r" + std::to_string(value) + (size_ == 0 ? " bytes" : "%"));
}

}  // namespace progress
