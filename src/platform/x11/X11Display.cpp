#include "platform/Backends.h"
#include "platform/x11/Xcb.h"

namespace nulo {

bool x11DisplayAnswers(const std::string& display) {
    const XcbConnection connection(xcb_connect(display.c_str(), nullptr));
    return !xcb_connection_has_error(connection.get());
}

}  // namespace nulo
