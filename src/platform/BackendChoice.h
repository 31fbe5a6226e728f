#pragma once

#include <string>
#include <vector>

namespace nulo {

/// What the session offers, as read from its environment and folders.
struct SessionFacts {
    std::string sessionType;      // $XDG_SESSION_TYPE
    std::string display;          // $DISPLAY
    std::string waylandDisplay;   // $WAYLAND_DISPLAY
    bool hasSoundServer = false;  // a PulseAudio-compatible socket or address is there
    bool hasAlsaCaptureDevice = false;
};

enum class Backend { x11, pulse, alsa, unavailable };

struct ChosenBackend {
    Backend backend;
    std::string reason;  // one line for the diagnostics, in English
};

/// In the order to be tried. By session type, never by whether a call succeeds: under XWayland an
/// X11 key grab succeeds and then does not fire in Wayland windows.
std::vector<ChosenBackend> chooseKeyTap(const SessionFacts& facts);
std::vector<ChosenBackend> chooseMicrophone(const SessionFacts& facts);

/// This process's session.
SessionFacts sessionFacts();

}  // namespace nulo
