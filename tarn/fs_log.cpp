#include "tarn/fs_log.h"

namespace tarn {

constinit logging::log_section_t fs_log{"fs_log"};

}  // namespace tarn
