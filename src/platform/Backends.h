#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/AudioFileWriter.h"
#include "audio/CaptureEngine.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "desktop/DesktopFacts.h"
#include "desktop/LoginItem.h"
#include "desktop/Notifications.h"
#include "desktop/StatusItem.h"
#include "pasting/Pasting.h"

#include "desktop/UserDefaults.h"
#include "hotkey/Chord.h"
#include "hotkey/EventTap.h"
#include "transcription/HttpSession.h"
#include "update/ProcessLauncher.h"
#include "update/UpdateHttp.h"

/// Every platform backend, reached by one function each, here and in WaylandBackends.h; nothing
/// else of platform/ is needed to use one. All are called on the main thread.
namespace nulo {

class InjectionGate;
class OverlayPlacement;

/// Work queue on Qt's event loop. After QCoreApplication was made, on its thread.
std::unique_ptr<MainQueue> makeQtMainQueue();

/// The session's own thread makes all delegate calls; `delegate` outlives the session. Proxies are
/// those of the environment, never for loopback; $SSL_CERT_FILE replaces the system's authorities.
/// The first call loads the module ../libexec/nulo-http.so beside this program.
std::unique_ptr<HttpSession> makeHttpSession(HttpSessionDelegate& delegate);

/// The sound server's, ALSA's as long as no sound server runs: chosen anew for every take.
std::unique_ptr<Microphone> makeMicrophone(MainQueue& mainQueue, Print print);

/// Connects to the sound server in the background and reconnects when it comes back. Notices
/// (one line each) go to `print`.
std::unique_ptr<Microphone> makePulseMicrophone(MainQueue& mainQueue, Print print);

/// For machines without a sound server.
std::unique_ptr<Microphone> makeAlsaMicrophone(MainQueue& mainQueue);

/// Each file is encoded by a process of its own, ../libexec/nulo-encoder beside this program, which
/// starts with the first frames. write() never waits, and fails once the process has ended or is 10
/// s behind. close() waits 2 s for a process that does nothing, 10 s for a busy one. A writer that
/// is dropped unclosed ends the process and leaves what was written so far.
Result<std::unique_ptr<AudioFileWriter>> makeAacFileWriter(const std::filesystem::path& path,
                                                           const AudioFileSettings& settings);

/// Frozen-grab tap on the X server named by $DISPLAY. `gate` and `mainQueue` outlive it.
std::unique_ptr<EventTapSource> makeX11EventTapSource(InjectionGate& gate, MainQueue& mainQueue,
                                                      Print print, const Chord& chord = {});

/// Where no tap is possible: never trusted, no taps.
std::unique_ptr<EventTapSource> makeUnavailableEventTapSource();

/// Keys of the X server named by $DISPLAY. `gate` outlives it.
std::unique_ptr<PasteKeystroke> makeX11PasteKeystroke(InjectionGate& gate);

/// By the X server's focus, bars and compositing manager; as the toolkit knows its screens where it
/// runs on no X server.
std::unique_ptr<OverlayPlacement> makeX11OverlayPlacement();

/// Where no keys can be sent: each keystroke fails for that reason, and the user pastes.
std::unique_ptr<PasteKeystroke> makeNoPasteKeystroke(std::string reason);

/// Whether an X server answers there; Qt ends the process when none does. Waits for the server.
bool x11DisplayAnswers(const std::string& display);

struct QtPasteboardOptions {
    /// The text carries the hint by which clipboard managers know passwords.
    bool isPrivate = false;
    /// One program, the compositor, may ask in the name of all others.
    bool isBridged = false;
};

/// Main thread, with a QGuiApplication; it tells which program reads on X11 only.
std::unique_ptr<Pasteboard> makeQtPasteboard(const QtPasteboardOptions& options = {});

/// The item in trays that ask over the session bus; shown nowhere without a bus. With a
/// QCoreApplication.
std::unique_ptr<StatusItem> makeStatusNotifierItem();

/// Notices by the desktop's own service (org.freedesktop.Notifications), which the bus may start.
/// With a QCoreApplication.
std::unique_ptr<Notifications> makeDesktopNotifications();

/// What another program prints on standard output, at most 64 kB of it; nothing when it cannot be
/// started, fails, or has not ended after five seconds, for which this waits.
std::optional<std::string> programOutput(const std::filesystem::path& program,
                                         const std::vector<std::string>& arguments);

/// Waits for the bus, and for a tray no longer than a second. With a QCoreApplication.
DesktopFacts desktopFacts();

/// The entry autostart/nulo.desktop in `configHome` (userFolders().config), which starts `program`,
/// an absolute path, at login. An entry for it that an earlier version wrote, and nobody changed,
/// is renewed at once.
std::unique_ptr<LoginItem> makeLoginItem(const std::filesystem::path& configHome,
                                         const std::filesystem::path& program);

/// Transfers as those of makeHttpSession(), each with a thread of its own. `mainQueue` outlives it.
std::unique_ptr<UpdateHttp> makeUpdateHttp(MainQueue& mainQueue);

/// Tells what it starts, in $NULO_PID and $NULO_EXECUTABLE, which process and which program this
/// is.
std::unique_ptr<ProcessLauncher> makeProcessLauncher();

/// An INI file, readable by its owner only; its folder is made when something is first written. A
/// file that is no INI file gets ".refused" added to its name.
std::unique_ptr<UserDefaults> makeUserDefaults(const std::filesystem::path& file);

}  // namespace nulo
