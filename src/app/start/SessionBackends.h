#pragma once

#include <filesystem>
#include <memory>

#include "base/MainQueue.h"
#include "base/Print.h"
#include "desktop/OverlayPlacement.h"
#include "hotkey/EventTap.h"
#include "pasting/Pasting.h"
#include "platform/session/BackendChoice.h"

namespace nulo {

class InjectionGate;
class WaylandSession;

/// What the session's keys, clipboard and screen are reached by: of each capability the first
/// candidate that can be made, which is printed; nulo-keytap is left out where it does not serve
/// this program and something else does. Waits two seconds at most for its answer. Main thread,
/// with a QApplication.
struct SessionBackends {
    /// `gate` and `mainQueue` outlive it. `configDir` keeps what a portal remembers of the user's
    /// leave. With `privateClipboard` texts carry the hint that clipboard managers are not to keep
    /// them.
    SessionBackends(const SessionFacts& facts, const BackendChoice& choice, const Chord& chord,
                    InjectionGate& gate, MainQueue& mainQueue,
                    const std::filesystem::path& configDir, bool privateClipboard,
                    const Print& print);

    std::shared_ptr<WaylandSession> wayland;  // null on X11
    std::unique_ptr<EventTapSource> eventTapSource;
    std::unique_ptr<Pasteboard> pasteboard;
    std::unique_ptr<PasteKeystroke> pasteKeystroke;
    std::unique_ptr<OverlayPlacement> overlayPlacement;
};

}  // namespace nulo
