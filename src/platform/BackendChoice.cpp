#include "platform/BackendChoice.h"

#include <cstdlib>
#include <filesystem>

namespace nulo {
namespace {
namespace fs = std::filesystem;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool hasSoundServer() {
    std::error_code ignored;
    const std::string runtime = variable("XDG_RUNTIME_DIR");
    return !variable("PULSE_SERVER").empty() ||
           (!runtime.empty() && fs::exists(fs::path(runtime) / "pulse" / "native", ignored)) ||
           fs::exists("/run/pulse/native", ignored);
}

/// ALSA names its capture devices pcmC<card>D<device>c.
bool hasAlsaCaptureDevice() {
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator("/dev/snd", ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("pcm") && name.ends_with("c"))
            return true;
    }
    return false;
}

}  // namespace

std::vector<ChosenBackend> chooseKeyTap(const SessionFacts& facts) {
    if (facts.sessionType == "wayland" || !facts.waylandDisplay.empty())
        return {{Backend::unavailable,
                 "Option+Space cannot be watched in a Wayland session yet; log in to an X11 (Xorg) "
                 "session to use it"}};
    if (facts.display.empty())
        return {{Backend::unavailable, "no display ($DISPLAY is not set)"}};
    return {{Backend::x11, "X11 session on display " + facts.display}};
}

std::vector<ChosenBackend> chooseMicrophone(const SessionFacts& facts) {
    const ChosenBackend pulse{Backend::pulse, facts.hasSoundServer ? "sound server found"
                                                                   : "no sound server found yet"};
    const ChosenBackend alsa{Backend::alsa, "capture device without a sound server"};
    if (!facts.hasSoundServer && facts.hasAlsaCaptureDevice)
        return {alsa, pulse};
    return {pulse, alsa};
}

SessionFacts sessionFacts() {
    return {variable("XDG_SESSION_TYPE"), variable("DISPLAY"), variable("WAYLAND_DISPLAY"),
            hasSoundServer(), hasAlsaCaptureDevice()};
}

}  // namespace nulo
