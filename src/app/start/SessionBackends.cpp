#include "app/start/SessionBackends.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "app/start/KeyService.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "platform/keytap/KeytapConnection.h"

namespace nulo {
namespace {

// systemd starts the service for who connects first.
constexpr auto longestKeytapAnswer = std::chrono::seconds(2);

}  // namespace

SessionBackends::SessionBackends(const SessionFacts& facts, const BackendChoice& choice,
                                 const Chord& chord, InjectionGate& gate, MainQueue& mainQueue,
                                 const std::filesystem::path& configDir, bool privateClipboard,
                                 const Print& print) {
    const std::shared_ptr<KeytapConnection> keytap = makeKeytapConnection(chord);
    std::optional<bool> keytapServes;
    const auto isLeftOut = [&](const BackendCandidate& candidate, bool isLast) {
        if (candidate.backend != Backend::keytap || isLast)
            return false;
        if (!keytapServes) {
            const auto answer = keytap->awaitStatus(
                [](const auto& status) { return status.state != KeytapConnection::State::asked; },
                longestKeytapAnswer);
            keytapServes = isUsable(answer);
            if (!*keytapServes)
                print("[nulo] Without nulo-keytap: " + keytapObstacle(answer));
        }
        return !*keytapServes;
    };
    const auto makeFirst = [&](const char* capability,
                               const std::vector<BackendCandidate>& candidates, auto make) {
        decltype(make(candidates.front())) made;
        for (std::size_t i = 0; !made && i < candidates.size(); ++i) {
            if (isLeftOut(candidates[i], i + 1 == candidates.size()))
                continue;
            made = make(candidates[i]);
            if (made)
                print(std::string("[nulo] ") + capability + ": " + candidates[i].reason);
        }
        return made;
    };
    if (!facts.waylandDisplay.empty())
        wayland = openWaylandSession(facts.waylandDisplay);
    eventTapSource = makeFirst("Key tap", choice.keySource, [&](const BackendCandidate& candidate) {
        switch (candidate.backend) {
            case Backend::x11:
                return makeX11EventTapSource(gate, mainQueue, print, chord);
            case Backend::keytap:
                return makeKeytapEventTapSource(keytap, mainQueue, print);
            case Backend::swayBindings:
                return makeSwayBindings(facts.swaySocket, print, chord);
            case Backend::shortcutsPortal:
                return makePortalShortcuts(print, chord);
            default:
                return makeUnavailableEventTapSource();
        }
    });
    pasteboard = makeFirst("Clipboard", choice.clipboard, [&](const BackendCandidate& candidate) {
        return candidate.backend == Backend::dataControl
                   ? makeWaylandPasteboard(wayland, mainQueue, privateClipboard)
                   : makeQtPasteboard({.isPrivate = privateClipboard,
                                       .isBridged = !facts.waylandDisplay.empty()});
    });
    pasteKeystroke = makeFirst("Paste", choice.paste, [&](const BackendCandidate& candidate) {
        switch (candidate.backend) {
            case Backend::x11:
                return makeX11PasteKeystroke(gate);
            case Backend::keytap:
                return makeKeytapPasteKeystroke(keytap);
            case Backend::virtualKeyboard:
                return makeVirtualKeyboardPaste(wayland);
            case Backend::fakeInput:
                return makeFakeInputPaste(wayland);
            case Backend::remoteDesktopPortal:
                return makePortalPaste(configDir / "remote-desktop-token", print);
            default:
                return makeNoPasteKeystroke(candidate.reason);
        }
    });
    overlayPlacement = makeFirst("Overlay", choice.overlay, [&](const BackendCandidate& candidate) {
        return candidate.backend == Backend::layerShell
                   ? makeLayerShellPlacement(wayland, mainQueue, choice.overlayTakesClicks)
                   : makeX11OverlayPlacement();
    });
}

}  // namespace nulo
