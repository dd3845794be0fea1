#include "mirrowen/util/type_name.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace util::detail {

std::string readable_name(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                           &std::free);
    return name ? name.get() : type.name();
}

}  // namespace util::detail
