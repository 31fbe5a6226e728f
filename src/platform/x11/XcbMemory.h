#pragma once

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

namespace nulo {

struct XcbFree {
    void operator()(void* memory) const { std::free(memory); }
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};

/// A reply, event or error that xcb allocated.
template <typename T>
using XcbMemory = std::unique_ptr<T, XcbFree>;
using XcbConnection = std::unique_ptr<xcb_connection_t, XcbFree>;

}  // namespace nulo
