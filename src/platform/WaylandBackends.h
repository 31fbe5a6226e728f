#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "base/MainQueue.h"
#include "base/Print.h"
#include "hotkey/Chord.h"
#include "hotkey/EventTap.h"
#include "pasting/Pasting.h"

/// The backends of Wayland sessions. All are called on the main thread.
namespace nulo {

class KeytapConnection;
class OverlayPlacement;
class WaylandSession;

/// What the compositor offers to this program, by interface, as chooseBackends() looks at it.
/// Nothing when none answers. Waits ten seconds at most.
std::optional<std::set<std::string>> waylandOffers(const std::string& display);

/// A connection to the compositor, in the background, for the backends below to share: what they
/// ask of it comes in order. `display` as in $WAYLAND_DISPLAY.
std::shared_ptr<WaylandSession> openWaylandSession(const std::string& display);

/// Both selections by data-control, which does not tell who reads. A private text carries the hint
/// by which clipboard managers know passwords. `mainQueue` outlives it.
std::unique_ptr<Pasteboard> makeWaylandPasteboard(std::shared_ptr<WaylandSession> session,
                                                  MainQueue& mainQueue, bool isPrivate = false);

/// Shift+Insert by a virtual keyboard, for the text of makeWaylandPasteboard().
std::unique_ptr<PasteKeystroke> makeVirtualKeyboardPaste(std::shared_ptr<WaylandSession> session);

/// The same by KWin's fake input.
std::unique_ptr<PasteKeystroke> makeFakeInputPaste(std::shared_ptr<WaylandSession> session);

/// The same by the portal's remote desktop, for the text of whatever pasteboard. Asks the user
/// once, now; the permission is kept in `tokenFile` for the next start. With a QCoreApplication.
std::unique_ptr<PasteKeystroke> makePortalPaste(std::filesystem::path tokenFile, Print print);

/// The overlay on a layer above all windows, drawn by the toolkit but not shown by it. Without
/// `takesClicks` clicks go through it. `mainQueue` outlives it; with a QApplication.
std::unique_ptr<OverlayPlacement> makeLayerShellPlacement(std::shared_ptr<WaylandSession> session,
                                                          MainQueue& mainQueue, bool takesClicks);

/// The keymap of the keyboards on that display (a name as in $WAYLAND_DISPLAY), in XKB's text
/// format; empty when no compositor answers. Waits for it, ten seconds at most. Any thread.
std::string keymapOf(const std::string& display);

/// To nulo-keytap, with the chord's keys in this session, for both backends below to share;
/// connects when it is first asked to.
std::shared_ptr<KeytapConnection> makeKeytapConnection(const Chord& chord = {});

/// The chord as nulo-keytap tells of it; trusted while that service serves this program.
/// `mainQueue` outlives it.
std::unique_ptr<EventTapSource> makeKeytapEventTapSource(
    std::shared_ptr<KeytapConnection> connection, MainQueue& mainQueue, Print print);

/// Shift+Insert, pressed by nulo-keytap.
std::unique_ptr<PasteKeystroke> makeKeytapPasteKeystroke(
    std::shared_ptr<KeytapConnection> connection);

/// Asks the user, through polkit, to switch nulo-keytap's socket on. False when nobody can ask.
bool switchKeytapOn();

/// The chord by sway's own bindings, as long as sway answers on that $SWAYSOCK. A thread of its own
/// calls the handlers.
std::unique_ptr<EventTapSource> makeSwayBindings(const std::string& socket, Print print,
                                                 const Chord& chord = {});

/// The chord by the portal's global shortcuts. Asks for them once; the user may be asked, too. With
/// a QCoreApplication.
std::unique_ptr<EventTapSource> makePortalShortcuts(Print print, const Chord& chord = {});

}  // namespace nulo
