#include "mirrowen/exc/runtime_exc.h"

namespace exc {

CRuntimeExc::CRuntimeExc(std::string text, std::exception_ptr cause) : CException(std::move(text), std::move(cause)) {}

CRuntimeExc::~CRuntimeExc() = default;

}  // namespace exc
