#pragma once

#include <set>
#include <string>
#include <vector>

#include "hotkey/Chord.h"

namespace nulo {

/// Of the key service nulo-keytap: whether somebody listens on its socket, or could.
enum class KeytapInstallation { none, off, on };

/// What the session offers.
struct SessionFacts {
    std::string sessionType;     // $XDG_SESSION_TYPE
    std::string display;         // $DISPLAY, where an X server answers
    std::string waylandDisplay;  // $WAYLAND_DISPLAY, where a compositor answers
    std::string desktop;         // $XDG_CURRENT_DESKTOP
    std::string swaySocket;      // $SWAYSOCK
    bool hasPortal = false;      // portalIsOnTheBus()
    KeytapInstallation keytap = KeytapInstallation::none;
    std::set<std::string> waylandOffers;  // the compositor's interfaces

    bool isWayland() const { return sessionType == "wayland" || !waylandDisplay.empty(); }
    bool offers(const char* interface) const { return waylandOffers.count(interface) > 0; }
    /// $XDG_CURRENT_DESKTOP is a list of names with colons between them.
    bool isDesktop(const std::string& name) const;
};

/// This process's session, as its environment tells: the displays that it names may not be there.
SessionFacts sessionFacts();

/// The session's kind and displays, in one line.
std::string described(const SessionFacts& facts);

/// Looks which displays answer, and what the compositor offers. Waits for them.
void lookAtDisplays(SessionFacts& facts);

/// Whether a desktop portal is on the session bus, or can be started by it. With a
/// QCoreApplication.
bool portalIsOnTheBus();

enum class Backend {
    x11,
    qt,
    keytap,
    swayBindings,
    shortcutsPortal,
    dataControl,
    virtualKeyboard,
    fakeInput,
    remoteDesktopPortal,
    layerShell,
    none
};

struct BackendCandidate {
    Backend backend;
    std::string reason;  // one line for the diagnostics, in English
};

/// The backends for each capability, the best first. A list's last one can always be made.
struct BackendChoice {
    std::string toolkitPlatform;  // the toolkit's name of the window system to be used
    std::vector<BackendCandidate> keySource;
    std::vector<BackendCandidate> clipboard;
    std::vector<BackendCandidate> paste;
    std::vector<BackendCandidate> overlay;
    bool overlayTakesClicks = true;  // not where a click on it would take the keyboard
};

/// By facts, never by whether a call succeeds: under XWayland an X11 key grab succeeds and then
/// does not fire in Wayland windows, and neither do keys that are sent reach those.
/// `chord` is what their reasons speak of.
BackendChoice chooseBackends(const SessionFacts& facts, const Chord& chord = {});

}  // namespace nulo
