#include "mirrowen/exc/not_impl_exc.h"

#include <utility>

namespace exc {

CNotImplExc::CNotImplExc(std::string operation) : CException(std::move(operation)) {}

CNotImplExc::CNotImplExc(std::string_view className, std::string_view operation)
    : CException(std::string(className).append("::").append(operation)) {}

CNotImplExc::~CNotImplExc() = default;

}  // namespace exc
