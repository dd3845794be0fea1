#include "tarn/file_wstream.h"

namespace tarn {

file_wstream_t::~file_wstream_t() = default;

}  // namespace tarn
