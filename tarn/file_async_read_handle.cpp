#include "tarn/file_async_read_handle.h"

namespace tarn {

IFileAsyncReadHandle::~IFileAsyncReadHandle() = default;

}  // namespace tarn
