#pragma once

#include <string>
#include <vector>

namespace nulo {

/// What the session offers, as read from its environment.
struct SessionFacts {
    std::string sessionType;     // $XDG_SESSION_TYPE
    std::string display;         // $DISPLAY
    std::string waylandDisplay;  // $WAYLAND_DISPLAY

    bool isWayland() const { return sessionType == "wayland" || !waylandDisplay.empty(); }
};

/// This process's session.
SessionFacts sessionFacts();

/// The session's kind and displays, in one line.
std::string described(const SessionFacts& facts);

enum class Backend { x11, qt, none };

struct BackendCandidate {
    Backend backend;
    std::string reason;  // one line for the diagnostics, in English
};

/// The backends for each capability, the best first. A list's last one can always be made.
struct BackendChoice {
    std::vector<BackendCandidate> keySource;
    std::vector<BackendCandidate> clipboard;
    std::vector<BackendCandidate> paste;
    std::vector<BackendCandidate> overlay;
};

/// By facts, never by whether a call succeeds: under XWayland an X11 key grab succeeds and then
/// does not fire in Wayland windows, and neither do keys that are sent reach those.
BackendChoice chooseBackends(const SessionFacts& facts);

}  // namespace nulo
