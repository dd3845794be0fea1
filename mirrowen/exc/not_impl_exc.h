#pragma once

#include <string>
#include <string_view>

#include "mirrowen/exc/exception.h"

namespace exc {

/// Thrown by an operation that a class does not offer.
class MIRROWEN_API CNotImplExc : public CException {
  public:
    /// The text is the operation's name as given, with or without its class.
    explicit CNotImplExc(std::string operation);

    /// The text is "class::operation".
    CNotImplExc(std::string_view className, std::string_view operation);

    CNotImplExc(const CNotImplExc&) noexcept = default;
    CNotImplExc& operator=(const CNotImplExc&) noexcept = default;
    ~CNotImplExc() override;
};

}  // namespace exc
