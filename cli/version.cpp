#include "cli/version.h"

namespace cli {

const char* const kVersion = TARN_VERSION;

}  // namespace cli
