#include "mirrowen/io/area/area_read_dev.h"

namespace io::area {

area_read_dev_t::~area_read_dev_t() = default;

}  // namespace io::area
