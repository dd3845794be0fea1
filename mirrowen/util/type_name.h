#pragma once

#include <string>
#include <typeinfo>

#include "mirrowen/export.h"

namespace util {

namespace detail {

MIRROWEN_API std::string readable_name(const std::type_info& type);

}  // namespace detail

/// The name of a type in the spelling of the C++ ABI ("unsigned long", where compilers spell "long unsigned int" and
/// others in their own messages).
template <class T>
std::string type_name() {
    return detail::readable_name(typeid(T));
}

}  // namespace util
