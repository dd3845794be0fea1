#pragma once

#include <utility>

#include "mirrowen/exc/runtime_exc.h"
#include "mirrowen/util/type_name.h"

namespace util {

/// Converts between integer types. A value that the target cannot hold throws `exc::CRuntimeExc`
/// "Unable to cast value from [%1] to [%2]." with the names of the two types.
template <class To, class From>
To numeric_cast(From value) {
    if (!std::in_range<To>(value)) {
        throw exc::CRuntimeExc("Unable to cast value from [%1] to [%2].", type_name<From>(), type_name<To>());
    }
    return static_cast<To>(value);
}

}  // namespace util
