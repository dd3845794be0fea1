#pragma once

#include <memory>
#include <vector>

namespace cnt {

/// The growable array that data buffers are made of; its size is end minus begin. Growing past what memory allows
/// throws the standard container's own errors.
template <class T, class Allocator = std::allocator<T>>
using array_t = std::vector<T, Allocator>;

}  // namespace cnt
