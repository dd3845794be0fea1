#include "mirrowen/io/in_out.h"

namespace io {

IInOut::~IInOut() = default;

}  // namespace io
