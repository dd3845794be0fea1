#include "mirrowen/io/file/random_access_dev.h"

namespace io::file {

random_access_dev_t::~random_access_dev_t() = default;

}  // namespace io::file
