#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "mirrowen/exc/exception.h"
#include "mirrowen/util/str_format.h"

namespace exc {

/// The ordinary failure: a message, with or without a cause.
class MIRROWEN_API CRuntimeExc : public CException {
  public:
    /// `text` is taken as it stands: placeholders in it are not filled.
    explicit CRuntimeExc(std::string text, std::exception_ptr cause = nullptr);

    /// `format` with "%1", "%2", ... filled from the arguments (see `util::str_format`).
    template <util::Formattable First, util::Formattable... Rest>
    CRuntimeExc(std::string_view format, const First& first, const Rest&... rest)
        : CRuntimeExc(util::str_format(format, first, rest...)) {}

    CRuntimeExc(const CRuntimeExc&) noexcept = default;
    CRuntimeExc& operator=(const CRuntimeExc&) noexcept = default;
    ~CRuntimeExc() override;
};

}  // namespace exc
