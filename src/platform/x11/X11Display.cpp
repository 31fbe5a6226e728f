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

bool x11DisplayAnswers(const std::string& display) {
    const XcbConnection connection = connectToDisplay(display.c_str());
    return !xcb_connection_has_error(connection.get());
}

}  // namespace nulo
