#include "tests/attack/flipper.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace tests {

flipper_t::flipper_t(const std::string& directory, std::string one, std::string other)
    : directory_(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
      one_(std::move(one)),
      other_(std::move(other)) {
    for (int twice = 0; twice < 2; ++twice) {
        if (!Flip()) {
            throw std::runtime_error("[" + one_ + "] and [" + other_ + "] cannot change places in " + directory + ": " +
                                     std::strerror(errno));
        }
    }
    thread_ = std::thread([this] { Run(); });
    flips_.wait(0);
}

flipper_t::~flipper_t() {
    Stop();
}

std::uint64_t flipper_t::Stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    return flips_;
}

bool flipper_t::Flip() const noexcept {
    return ::renameat2(directory_.get(), one_.c_str(), directory_.get(), other_.c_str(), RENAME_EXCHANGE) == 0;
}

// A name may be missing for a moment, while the code under test replaces it.
void flipper_t::Run() noexcept {
    while (!stop_) {
        if (Flip()) {
            ++flips_;
            flips_.notify_one();
        }
    }
    for (int tries = 0; flips_ % 2 != 0 && tries < 1000; ++tries) {
        if (Flip()) {
            ++flips_;
        }
    }
}

}  // namespace tests
