#include "cli/interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <ctime>

#include "cli/exit_code.h"

namespace cli {

namespace {

constexpr long kPollNanoseconds = 50'000'000;

sigset_t watched_signals() {
    sigset_t set;
    ::sigemptyset(&set);
    ::sigaddset(&set, SIGINT);
    ::sigaddset(&set, SIGTERM);
    return set;
}

}  // namespace

interrupt_t::interrupt_t() {
    const sigset_t set = watched_signals();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    watcher_ = std::jthread([this](const std::stop_token& stop) { Watch(stop); });
}

interrupt_t::~interrupt_t() {
    watcher_.request_stop();
    watcher_.join();
    const sigset_t set = watched_signals();
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void interrupt_t::Watch(const std::stop_token& stop) {
    const sigset_t set = watched_signals();
    const timespec slice{0, kPollNanoseconds};
    while (!stop.stop_requested()) {
        const int got = ::sigtimedwait(&set, nullptr, &slice);
        if (got <= 0) {
            continue;
        }
        if (signal_.exchange(got) != 0) {
            ::_exit(kInterrupted);
        }
        source_.request_stop();
    }
}

}  // namespace cli
