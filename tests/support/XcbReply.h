#pragma once

#include <cstdlib>
#include <memory>

namespace nulo {

/// What xcb allocated for its caller.
template <typename T>
using XcbReply = std::unique_ptr<T, decltype(&std::free)>;

template <typename T>
XcbReply<T> owned(T* reply) {
    return {reply, &std::free};
}

}  // namespace nulo
