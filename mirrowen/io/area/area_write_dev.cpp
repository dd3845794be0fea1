#include "mirrowen/io/area/area_write_dev.h"

namespace io::area {

area_write_dev_t::~area_write_dev_t() = default;

}  // namespace io::area
