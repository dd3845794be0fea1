#include "agent/confine/runtime.h"

#include <ctime>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
namespace {

bool g_prepared = false;

}  // namespace

// Asked when the program ends. Looking for leaks takes "/proc", which a confined process does not see; an unconfined
// run of the same program is searched.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off();
int __lsan_is_turned_off() {
    return g_prepared ? 1 : 0;
}
#endif

namespace agent {

void PrepareRuntime() {
    ::tzset();
#if defined(__SANITIZE_ADDRESS__)
    g_prepared = true;
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    __sanitizer_sandbox_on_notify(nullptr);
#endif
}

}  // namespace agent
