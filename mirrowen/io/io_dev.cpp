#include "mirrowen/io/io_dev.h"

namespace io {

io_dev_t::~io_dev_t() = default;

}  // namespace io
