#include <mutex>

#include "platform/Backends.h"
#include "platform/x11/Xcb.h"

namespace nulo {

XcbConnection connectToDisplay(const char* display, int* screen) {
    // libXau keeps the name of the authority file in one buffer for all threads.
    static std::mutex oneAtATime;
    const std::lock_guard lock(oneAtATime);
    return XcbConnection(xcb_connect(display, screen));
}

xcb_atom_t atomOf(xcb_connection_t* connection, std::string_view name) {
    const auto reply = NULO_XCB(xcb_intern_atom, connection, 0,
                                static_cast<std::uint16_t>(name.size()), name.data());
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

bool x11DisplayAnswers(const std::string& display) {
    const XcbConnection connection = connectToDisplay(display.c_str());
    return !xcb_connection_has_error(connection.get());
}

}  // namespace nulo
