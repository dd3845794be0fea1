#pragma once

#include <string>
#include <string_view>

#include "mirrowen/exc/exception.h"

namespace posix {

/// A failed system call: what was tried, on which path, and the errno.
///
/// `Message()` is `format` with "%1" filled with the path, then ": " and the errno's description, so a line in a log or
/// a terminal names file and reason.
class MIRROWEN_API errno_exc_t : public exc::CException {
  public:
    errno_exc_t(std::string_view format, std::string path, int error);
    errno_exc_t(const errno_exc_t&) noexcept = default;
    errno_exc_t& operator=(const errno_exc_t&) noexcept = default;
    ~errno_exc_t() override;

    int GetErrno() const noexcept { return error_; }
    const std::string& GetPath() const noexcept { return *path_; }
    /// The errno's description ("No such file or directory").
    std::string GetErrnoDescr() const;

  private:
    std::shared_ptr<const std::string> path_;
    int error_;
};

/// Description of an errno; thread-safe.
MIRROWEN_API std::string DescribeErrno(int error);

}  // namespace posix
