#include "mirrowen/posix/errno_exc.h"

#include <cstring>
#include <utility>

#include "mirrowen/util/str_format.h"

namespace posix {

namespace {

std::string compose(std::string_view format, const std::string& path, int error) {
    return util::str_format(format, path) + ": " + DescribeErrno(error);
}

}  // namespace

errno_exc_t::errno_exc_t(std::string_view format, std::string path, int error)
    : exc::CException(compose(format, path, error)),
      path_(std::make_shared<const std::string>(std::move(path))),
      error_(error) {}

errno_exc_t::~errno_exc_t() = default;

std::string errno_exc_t::GetErrnoDescr() const {
    return DescribeErrno(error_);
}

std::string DescribeErrno(int error) {
    // Unlike strerror this one returns constant texts, so it may be asked from any thread.
    const char* const description = strerrordesc_np(error);
    return description != nullptr ? std::string(description) : "Unknown error " + std::to_string(error);
}

}  // namespace posix
