#include "platform/session/BackendChoice.h"

namespace nulo {
namespace {

using Candidates = std::vector<BackendCandidate>;

constexpr const char* virtualKeyboards = "zwp_virtual_keyboard_manager_v1";
constexpr const char* fakeInputs = "org_kde_kwin_fake_input";
constexpr const char* layerShells = "zwlr_layer_shell_v1";

bool hasDataControl(const SessionFacts& facts) {
    return facts.offers("ext_data_control_manager_v1") ||
           facts.offers("zwlr_data_control_manager_v1");
}

bool isKwin(const SessionFacts& facts) {
    return facts.isDesktop("KDE") || facts.offers("org_kde_plasma_shell");
}

const BackendCandidate keytapKeys{Backend::keytap, "nulo-keytap, which tells of the chord alone"};
const BackendCandidate keytapPaste{Backend::keytap, "Shift+Insert, by nulo-keytap"};

/// By what the compositor and the desktop have of their own.
Candidates desktopKeySource(const SessionFacts& facts, const Chord& chord) {
    if (!facts.swaySocket.empty())
        return {{Backend::swayBindings,
                 "sway's own bindings: " + chord.name() + ", until " + chord.key + " is let go"}};
    if (facts.hasPortal)
        return {{Backend::shortcutsPortal, "the desktop's global shortcuts, by its portal"}};
    if (facts.keytap == KeytapInstallation::off)
        return {{Backend::keytap, "nulo-keytap, once it is switched on"}};
    return {{Backend::none,
             chord.title() +
                 " cannot be watched: nulo-keytap is not installed, the compositor is not sway "
                 "($SWAYSOCK is not set), and no desktop portal with global shortcuts is on the "
                 "session bus"}};
}

Candidates waylandKeySource(const SessionFacts& facts, const Chord& chord) {
    Candidates candidates = desktopKeySource(facts, chord);
    if (facts.keytap != KeytapInstallation::on)
        return candidates;
    // It is what to wait for, where there is nothing else.
    if (candidates.front().backend == Backend::none)
        candidates.clear();
    candidates.insert(candidates.begin(), keytapKeys);
    return candidates;
}

Candidates waylandClipboard(const SessionFacts& facts) {
    if (hasDataControl(facts))
        return {{Backend::dataControl, "both selections, by data-control"}};
    // KWin hands on what an X11 program has only while that has the focus, and has data-control.
    if (!facts.display.empty())
        return {{Backend::qt, "both selections, through XWayland"}};
    return {{Backend::qt,
             "the desktop takes a text from the window with the focus only: the compositor offers "
             "no data-control, and there is no XWayland"}};
}

/// Without what pastes that data-control has put there.
Candidates otherPaste(const SessionFacts& facts) {
    if (isKwin(facts))
        return {{Backend::none,
                 "by hand: KWin does not let this program send keys, as it is not the one that "
                 "the installed desktop entry names"}};
    if (facts.hasPortal)
        return {{Backend::remoteDesktopPortal,
                 "Shift+Insert, by the desktop's portal, which asks for leave once"}};
    return {{Backend::none,
             "by hand: the compositor offers neither a virtual keyboard nor KWin's fake input, and "
             "no desktop portal is on the session bus"}};
}

Candidates waylandPaste(const SessionFacts& facts) {
    // Each of the two pastes what data-control has put there.
    if (hasDataControl(facts) && facts.offers(virtualKeyboards))
        return {{Backend::virtualKeyboard, "Shift+Insert, by a virtual keyboard"}};
    if (hasDataControl(facts) && facts.offers(fakeInputs))
        return {{Backend::fakeInput, "Shift+Insert, by KWin's fake input"}};
    Candidates candidates = otherPaste(facts);
    if (facts.keytap == KeytapInstallation::on)
        candidates.insert(candidates.begin(), keytapPaste);
    return candidates;
}

Candidates waylandOverlay(const SessionFacts& facts) {
    // On KWin a layer's surface takes the keyboard when it is clicked.
    if (facts.offers(layerShells) && (!isKwin(facts) || facts.display.empty()))
        return {{Backend::layerShell, "a layer above all windows"}};
    if (!facts.display.empty())
        return {{Backend::x11, "above all windows, through XWayland"}};
    return {{Backend::qt, "where the compositor puts it"}};
}

}  // namespace

BackendChoice chooseBackends(const SessionFacts& facts, const Chord& chord) {
    BackendChoice choice;
    // Windows keep their places on XWayland, and GNOME takes the clipboard from there.
    choice.toolkitPlatform = facts.display.empty() && facts.isWayland() ? "wayland" : "xcb";
    if (facts.isWayland()) {
        choice.keySource = waylandKeySource(facts, chord);
        choice.clipboard = waylandClipboard(facts);
        choice.paste = waylandPaste(facts);
        choice.overlay = waylandOverlay(facts);
        choice.overlayTakesClicks =
            !isKwin(facts) || choice.overlay.front().backend != Backend::layerShell;
        return choice;
    }
    choice.clipboard = {{Backend::qt, "the desktop's clipboard and primary selection"}};
    if (facts.display.empty()) {
        const BackendCandidate none{Backend::none, "no display ($DISPLAY is not set)"};
        choice.keySource = choice.paste = choice.overlay = {none};
        return choice;
    }
    choice.keySource = {{Backend::x11, "X11 session on display " + facts.display}};
    choice.paste = {{Backend::x11, "the focused program's own keys, by XTEST"},
                    {Backend::none, "by hand"}};
    choice.overlay = {{Backend::x11, "above all windows of the display"}};
    return choice;
}

}  // namespace nulo
