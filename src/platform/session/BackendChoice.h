#pragma once

#include <string>

namespace nulo {

/// What the session offers, as read from its environment.
struct SessionFacts {
    std::string sessionType;     // $XDG_SESSION_TYPE
    std::string display;         // $DISPLAY
    std::string waylandDisplay;  // $WAYLAND_DISPLAY
};

struct KeyTapChoice {
    enum class Backend { x11, unavailable };
    Backend backend;
    std::string reason;  // one line for the diagnostics, in English
};

/// By session type, never by whether a call succeeds: under XWayland an X11 key grab succeeds and
/// then does not fire in Wayland windows.
KeyTapChoice chooseKeyTap(const SessionFacts& facts);

/// Whether an X server answers there; Qt ends the process when none does. Waits for the server.
bool x11DisplayAnswers(const std::string& display);

/// This process's session.
SessionFacts sessionFacts();

}  // namespace nulo
