#include "mirrowen/exc/already_exists_exc.h"

#include <utility>

namespace exc {

CAlreadyExistsExc::CAlreadyExistsExc(std::string text) : CException(std::move(text)) {}

CAlreadyExistsExc::~CAlreadyExistsExc() = default;

}  // namespace exc
