#include "platform/session/BackendChoice.h"

#include <xcb/xcb.h>

#include <cstdlib>

namespace nulo {
namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

KeyTapChoice chooseKeyTap(const SessionFacts& facts) {
    using Backend = KeyTapChoice::Backend;
    if (facts.sessionType == "wayland" || !facts.waylandDisplay.empty())
        return {Backend::unavailable,
                "Option+Space cannot be watched in a Wayland session yet; log in to an X11 (Xorg) "
                "session to use it"};
    if (facts.display.empty())
        return {Backend::unavailable, "no display ($DISPLAY is not set)"};
    return {Backend::x11, "X11 session on display " + facts.display};
}

bool x11DisplayAnswers(const std::string& display) {
    xcb_connection_t* const connection = xcb_connect(display.c_str(), nullptr);
    const bool answers = !xcb_connection_has_error(connection);
    xcb_disconnect(connection);
    return answers;
}

SessionFacts sessionFacts() {
    return {variable("XDG_SESSION_TYPE"), variable("DISPLAY"), variable("WAYLAND_DISPLAY")};
}

}  // namespace nulo
