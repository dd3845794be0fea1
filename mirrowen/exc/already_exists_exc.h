#pragma once

#include <string>

#include "mirrowen/exc/exception.h"

namespace exc {

/// The target of a creation is already there and must not be replaced.
///
/// This error is told apart from all others from the backend to the far end of the wire, so nothing wraps it: a handler
/// that adds context to errors on a creating path rethrows this one unchanged first.
class MIRROWEN_API CAlreadyExistsExc : public CException {
  public:
    explicit CAlreadyExistsExc(std::string text);
    CAlreadyExistsExc(const CAlreadyExistsExc&) noexcept = default;
    CAlreadyExistsExc& operator=(const CAlreadyExistsExc&) noexcept = default;
    ~CAlreadyExistsExc() override;
};

}  // namespace exc
