#include "agent/copy/descriptor_rstream.h"

#include <poll.h>

#include <cerrno>
#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"
#include "mirrowen/posix/syscalls.h"
#include "mirrowen/util/clock.h"

namespace agent::copy {

descriptor_rstream_t::descriptor_rstream_t(std::string name, posix::unique_fd_t fd, net::remote_options_t limits)
    : name_(std::move(name)), fd_(std::move(fd)), limits_(std::move(limits)) {}

descriptor_rstream_t::~descriptor_rstream_t() = default;

std::string descriptor_rstream_t::GetPath() {
    return name_;
}

std::uint64_t descriptor_rstream_t::GetFileSize() {
    return 0;
}

void descriptor_rstream_t::SeekTo(std::uint64_t) {
    throw exc::CRuntimeExc("[%1] cannot be positioned.", name_);
}

std::uint64_t descriptor_rstream_t::ReadExc(void* buffer, std::uint64_t count) {
    std::uint64_t done = 0;
    while (done < count) {
        const std::size_t got = ReadSome(static_cast<char*>(buffer) + done, static_cast<std::size_t>(count - done));
        if (got == 0) {
            break;
        }
        done += got;
    }
    return done;
}

std::size_t descriptor_rstream_t::ReadSome(char* buffer, std::size_t count) {
    for (;;) {
        pollfd waiting{fd_.get(), POLLIN, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(util::kWaitSlice.count()));
        limits_.ThrowIfStopped();
        if (ready == 0) {
            continue;
        }
        const ssize_t got = ready < 0 ? -1 : posix::sys().read(fd_.get(), buffer, count);
        if (got >= 0) {
            limits_.ThrowIfStopped();
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR && errno != EAGAIN) {
            throw posix::errno_exc_t("Failed to read from [%1]", name_, errno);
        }
    }
}

void descriptor_rstream_t::FinishRead() {}

}  // namespace agent::copy
