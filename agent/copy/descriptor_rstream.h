#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "agent/net/remote_options.h"
#include "mirrowen/posix/unique_fd.h"
#include "tarn/file_rstream.h"

namespace agent::copy {

/// Reads a descriptor whose end nobody knows before it comes (standard input, a pipe). One thread at a time.
class descriptor_rstream_t final : public tarn::file_rstream_t {
  public:
    /// `name` is for messages.
    descriptor_rstream_t(std::string name, posix::unique_fd_t fd, net::remote_options_t limits);
    ~descriptor_rstream_t() override;

    std::string GetPath() override;
    /// 0: unknown.
    std::uint64_t GetFileSize() override;
    /// Throws `exc::CRuntimeExc` "[%1] cannot be positioned.".
    void SeekTo(std::uint64_t offset) override;
    /// Fewer bytes than asked only at the end, 0 at the end. Waits for bytes as long as it takes, but not beyond a stop
    /// that was asked for: that throws, also at the end, since what came may be cut short by what stopped us.
    std::uint64_t ReadExc(void* buffer, std::uint64_t count) override;
    void FinishRead() override;

  private:
    std::size_t ReadSome(char* buffer, std::size_t count);

    const std::string name_;
    const posix::unique_fd_t fd_;
    const net::remote_options_t limits_;
};

}  // namespace agent::copy
