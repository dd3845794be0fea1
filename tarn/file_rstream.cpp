#include "tarn/file_rstream.h"

namespace tarn {

file_rstream_t::~file_rstream_t() = default;

}  // namespace tarn
