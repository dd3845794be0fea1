#include "mirrowen/io/area/area_dev_factory.h"

namespace io::area {

IAreaDevFactory::~IAreaDevFactory() = default;

}  // namespace io::area
