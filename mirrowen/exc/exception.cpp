#include "mirrowen/exc/exception.h"

#include <utility>

namespace exc {

namespace {

constexpr int kMaxCauses = 64;

// The cause's own what() already holds the causes below it, so one step is enough.
std::string with_cause(const std::string& message, const std::exception_ptr& cause) {
    if (!cause) {
        return message;
    }
    try {
        std::rethrow_exception(cause);
    } catch (const std::exception& error) {
        return message + '\n' + error.what();
    } catch (...) {
        return message + "\nunknown error";
    }
}

}  // namespace

CException::CException(std::string message, std::exception_ptr cause)
    : std::runtime_error(with_cause(message, cause)),
      message_(std::make_shared<const std::string>(std::move(message))),
      cause_(std::move(cause)) {}

CException::~CException() = default;

const std::string& CException::Message() const noexcept {
    return *message_;
}

std::exception_ptr CException::Cause() const noexcept {
    return cause_;
}

std::string MessageOf(const std::exception& error) {
    if (const auto* own = dynamic_cast<const CException*>(&error)) {
        return own->Message();
    }
    return error.what();
}

std::exception_ptr RootCause(std::exception_ptr error) {
    for (int depth = 0; error && depth < kMaxCauses; ++depth) {
        try {
            std::rethrow_exception(error);
        } catch (const CException& own) {
            if (!own.Cause()) {
                return error;
            }
            error = own.Cause();
        } catch (...) {
            return error;
        }
    }
    return error;
}

}  // namespace exc
