#include "mirrowen/io/io_async_task.h"

namespace io {

io_async_task_t::~io_async_task_t() = default;

}  // namespace io
