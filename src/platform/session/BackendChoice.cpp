#include "platform/session/BackendChoice.h"

#include "base/Environment.h"

namespace nulo {

SessionFacts sessionFacts() {
    return {environmentVariable("XDG_SESSION_TYPE"), environmentVariable("DISPLAY"),
            environmentVariable("WAYLAND_DISPLAY")};
}

std::string described(const SessionFacts& facts) {
    std::string line = facts.isWayland() ? "Wayland, display " + facts.waylandDisplay : "X11";
    if (!facts.display.empty())
        line += (facts.isWayland() ? ", XWayland on " : ", display ") + facts.display;
    return line;
}

BackendChoice chooseBackends(const SessionFacts& facts) {
    BackendChoice choice;
    choice.clipboard = {{Backend::qt, "the desktop's clipboard and primary selection"}};
    if (facts.isWayland()) {
        choice.keySource = {{Backend::none,
                             "Option+Space cannot be watched in a Wayland session yet; log in to "
                             "an X11 (Xorg) session to use it"}};
        choice.paste = {
            {Backend::none,
             "by hand: no keys can be sent to other programs in a Wayland session yet"}};
        choice.overlay = {{Backend::qt, "where the compositor puts it"}};
        return choice;
    }
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
