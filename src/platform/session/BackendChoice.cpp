#include "platform/session/BackendChoice.h"

#include <cstdlib>
#include <filesystem>

#include "keytap/Protocol.h"

namespace nulo {
namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

KeytapInstallation keytapInstallation() {
    std::error_code error;
    if (std::filesystem::exists(keytap::socketPath, error))
        return KeytapInstallation::on;
    for (const char* folder : {"/etc", "/usr/local/lib", "/usr/lib"})
        if (std::filesystem::exists(std::string(folder) + "/systemd/system/nulo-keytap.socket",
                                    error))
            return KeytapInstallation::off;
    return KeytapInstallation::none;
}

/// It stands before what else the session offers where it is on, behind it where it is off.
void addKeytap(BackendChoice& choice, KeytapInstallation keytap) {
    if (keytap == KeytapInstallation::none)
        return;
    const bool isOn = keytap == KeytapInstallation::on;
    choice.keySource.insert(isOn ? choice.keySource.begin() : choice.keySource.end() - 1,
                            {Backend::keytap, isOn ? "nulo-keytap, which tells of the chord alone"
                                                   : "nulo-keytap, once it is switched on"});
    choice.paste.insert(choice.paste.end() - 1,
                        {Backend::keytap, "Shift+Insert, by nulo-keytap, while it is on"});
}

}  // namespace

SessionFacts sessionFacts() {
    return {variable("XDG_SESSION_TYPE"), variable("DISPLAY"), variable("WAYLAND_DISPLAY"),
            keytapInstallation()};
}

BackendChoice chooseBackends(const SessionFacts& facts) {
    BackendChoice choice;
    choice.clipboard = {{Backend::qt, "the desktop's clipboard and primary selection"}};
    if (facts.isWayland()) {
        choice.keySource = {{Backend::none,
                             "Option+Space cannot be watched in a Wayland session without "
                             "nulo-keytap, which is not installed"}};
        choice.paste = {
            {Backend::none, "by hand: no keys can be sent to other programs without nulo-keytap"}};
        choice.overlay = {{Backend::qt, "where the compositor puts it"}};
        addKeytap(choice, facts.keytap);
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
