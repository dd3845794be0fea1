#pragma once

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include "mirrowen/export.h"

namespace exc {

/// Root of the house's exceptions. It carries a message of its own and, when it was raised over another error, that
/// error as its cause. `what()` is the whole story: the message and then each cause on a line of its own, so a caller
/// that catches `std::exception` loses nothing.
///
/// Copies share their state and never throw; an object may be read from any thread.
class MIRROWEN_API CException : public std::runtime_error {
  public:
    /// `cause` may be empty.
    explicit CException(std::string message, std::exception_ptr cause = nullptr);
    CException(const CException&) noexcept = default;
    CException& operator=(const CException&) noexcept = default;
    ~CException() override;

    /// The text of this error alone, without its causes.
    const std::string& Message() const noexcept;

    /// The error that led to this one, or an empty pointer.
    std::exception_ptr Cause() const noexcept;

  private:
    std::shared_ptr<const std::string> message_;
    std::exception_ptr cause_;
};

/// `CException::Message` of such an error, `what()` of any other: the text of the error alone.
MIRROWEN_API std::string MessageOf(const std::exception& error);

/// The innermost cause of `error`, or `error` itself as a pointer; walks at most 64 causes.
MIRROWEN_API std::exception_ptr RootCause(std::exception_ptr error);

}  // namespace exc
