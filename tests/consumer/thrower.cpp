#include "tests/consumer/thrower.h"

#include "mirrowen/exc/already_exists_exc.h"
#include "mirrowen/exc/not_impl_exc.h"
#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/posix/errno_exc.h"

namespace tests::consumer {

void ThrowRuntime() {
    throw exc::CRuntimeExc("[%1]", 1);
}

void ThrowNotImpl() {
    throw exc::CNotImplExc("class", "operation");
}

void ThrowAlreadyExists() {
    throw exc::CAlreadyExistsExc("there");
}

std::string Classify(const std::function<void()>& call) {
    try {
        call();
    } catch (const exc::CRuntimeExc&) {
        return "CRuntimeExc";
    } catch (const exc::CNotImplExc&) {
        return "CNotImplExc";
    } catch (const exc::CAlreadyExistsExc&) {
        return "CAlreadyExistsExc";
    } catch (const posix::errno_exc_t&) {
        return "errno_exc_t";
    } catch (...) {
        return "unknown";
    }
    return "nothing";
}

}  // namespace tests::consumer
