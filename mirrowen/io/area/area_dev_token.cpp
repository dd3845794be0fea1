#include "mirrowen/io/area/area_dev_token.h"

namespace io::area {

IAreaDevToken::~IAreaDevToken() = default;

}  // namespace io::area
