#include "cli/progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace cli {

namespace {

constexpr std::chrono::milliseconds kInterval{100};
constexpr int kBarWidth = 30;

// What is done of the whole, 0 to 1: bytes where there are any, items else.
double share(std::uint64_t done, std::uint64_t all) {
    return all == 0 ? 1.0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(all));
}

}  // namespace

progress_bar_t::progress_bar_t(bool quiet) : visible_(!quiet && ::isatty(STDERR_FILENO) == 1) {}

progress_bar_t::~progress_bar_t() {
    if (visible_) {
        std::fputs("\r\x1b[K", stderr);
    }
}

void progress_bar_t::OnPlanned(std::uint64_t items, std::uint64_t bytes) {
    items_ = items;
    bytes_ = bytes;
    Show(true);
}

void progress_bar_t::OnBytes(std::uint64_t bytes) {
    bytesDone_ += bytes;
    Show(false);
}

void progress_bar_t::OnItemDone(const std::string&) {
    ++itemsDone_;
    Show(false);
}

void progress_bar_t::Show(bool now) {
    const auto time = util::clock().SteadyNow();
    if (!visible_ || (!now && time - shownAt_ < kInterval)) {
        return;
    }
    shownAt_ = time;
    const double done = bytes_ != 0 ? share(bytesDone_, bytes_) : share(itemsDone_, items_);
    const std::string bar(static_cast<std::size_t>(done * kBarWidth), '#');
    std::fprintf(stderr, "\r[%-*s] %3.0f%%  %llu of %llu items  %.1f of %.1f MB\x1b[K", kBarWidth, bar.c_str(),
                 done * 100, static_cast<unsigned long long>(itemsDone_), static_cast<unsigned long long>(items_),
                 static_cast<double>(bytesDone_) / 1e6, static_cast<double>(bytes_) / 1e6);
    std::fflush(stderr);
}

}  // namespace cli
