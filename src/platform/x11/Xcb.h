#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#define explicit explicit_  // a field's name in this C header
#include <xcb/xkb.h>
#undef explicit

namespace nulo {

struct XcbFree {
    void operator()(void* memory) const { std::free(memory); }
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};

/// A reply, event or error that xcb allocated.
template <typename T>
using XcbMemory = std::unique_ptr<T, XcbFree>;
using XcbConnection = std::unique_ptr<xcb_connection_t, XcbFree>;
using XcbEvent = XcbMemory<xcb_generic_event_t>;

/// Connects to `display`, or to $DISPLAY when that is null. The result is never null; it may hold
/// an error, as that of xcb_connect(). Any thread.
XcbConnection connectToDisplay(const char* display, int* screen = nullptr);

template <typename T>
XcbMemory<T> owned(T* memory) {
    return XcbMemory<T>(memory);
}

/// Sends a request and waits for its answer; nothing when the server refused or is gone.
#define NULO_XCB(call, connection, ...) \
    nulo::owned(call##_reply(connection, call(connection __VA_OPT__(, ) __VA_ARGS__), nullptr))

/// The atom of that name, made where there is none; XCB_ATOM_NONE when the server did not answer.
xcb_atom_t atomOf(xcb_connection_t* connection, std::string_view name);

/// The event's type, without the bit that marks what another client sent.
inline int typeOf(const xcb_generic_event_t& event) {
    return event.response_type & 0x7F;
}

/// `event` is a core key press or release.
inline const xcb_key_press_event_t& asKey(const xcb_generic_event_t& event) {
    return reinterpret_cast<const xcb_key_press_event_t&>(event);
}

/// Orders full sequence numbers, and server times; both wrap.
inline bool isBefore(std::uint32_t earlier, std::uint32_t later) {
    return static_cast<std::int32_t>(earlier - later) < 0;
}

/// The detail of an AccessX notice which says that Slow Keys delay a press; xcb's header has its
/// mask only.
constexpr int slowKeyPressed = 0;

/// Whether the event is the press of the key that happened at this server time.
inline bool isPressOf(const xcb_generic_event_t& event, xcb_keycode_t key, xcb_timestamp_t time) {
    return typeOf(event) == XCB_KEY_PRESS && asKey(event).detail == key &&
           asKey(event).time == time;
}

}  // namespace nulo
