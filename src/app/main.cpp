#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QIcon>
#include <QUrl>
#include <chrono>
#include <cstdio>
#include <string>

#include "app/AppDelegate.h"
#include "app/BuildInfo.h"
#include "app/CommandLine.h"
#include "base/PrivateFolder.h"
#include "base/StandardStreams.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "platform/dbus/SessionLock.h"
#include "platform/dbus/SingleInstance.h"
#include "platform/session/BackendChoice.h"
#include "platform/system/AbruptExit.h"
#include "platform/system/TerminationSignals.h"
#include "platform/system/UserFolders.h"
#include "ui/alerts/UpdateDialogs.h"
#include "ui/tray/TrayItem.h"
#include "ui/tray/XEmbedTrayIcon.h"

namespace nulo {
namespace {

/// The first of a capability's backends that can be made.
template <typename Make>
auto makeFirst(const char* capability, const std::vector<BackendCandidate>& candidates, Make make) {
    decltype(make(Backend::none)) made;
    for (std::size_t i = 0; !made && i < candidates.size(); ++i) {
        made = make(candidates[i].backend);
        if (made)
            printLine(std::string("[nulo] ") + capability + ": " + candidates[i].reason);
    }
    return made;
}

/// The page that says how the shortcut works and what it needs, beside the installed program.
void openShortcutHelp() {
    const QFileInfo page(QCoreApplication::applicationDirPath() + "/../share/doc/nulo/shortcut.md");
    QDesktopServices::openUrl(QUrl::fromLocalFile(page.canonicalFilePath()));
}

void removeTakes(const std::filesystem::path& folder, Clock::WallTime writtenBefore) {
    removeOwnFiles(folder, "recording_", ".m4a", writtenBefore);
}

int run(int argc, char** argv, bool isQuiet) {
    const Clock::WallTime startTime = systemClock().wallTime();
    const SessionFacts facts = sessionFacts();
    if (facts.display.empty() && facts.waylandDisplay.empty()) {
        printLine("Nulo needs a desktop: neither $DISPLAY nor $WAYLAND_DISPLAY is set.");
        return 1;
    }
    if (facts.waylandDisplay.empty() && !x11DisplayAnswers(facts.display)) {
        printLine("Nulo cannot reach the display " + facts.display +
                  ": no X server answers there, or it does not let this user in.");
        return 1;
    }
    QApplication application(argc, argv);
    QApplication::setApplicationName("nulo");
    QApplication::setApplicationVersion(
        QString::fromUtf8(build::version().data(), build::version().size()));
    QApplication::setDesktopFileName("org.nulo.Nulo");
    QApplication::setQuitOnLastWindowClosed(false);

    const ClaimedInstance claimed = claimInstance(printLine);
    switch (claimed.instance) {
        case Instance::only:
            break;
        case Instance::alreadyRuns:
            printLine("Nulo is already running: its settings window was opened.");
            return 0;
        case Instance::alreadyRunsButHangs:
            printLine("Nulo is already running but does not answer: end it, then start it again.");
            return 1;
    }

    if (isQuiet)
        silenceStandardOutput();
    const UserFolders folders = userFolders();
    removeTakes(folders.recordings, startTime);  // that an earlier run left
    const ConfigFile configFile(folders.home, printLine);
    const std::unique_ptr<MainQueue> mainQueue = makeQtMainQueue();
    const std::unique_ptr<Microphone> microphone = makeMicrophone(*mainQueue, printLine);
    InjectionGate gate;
    const BackendChoice choice = chooseBackends(facts);
    const auto eventTapSource = makeFirst("Key tap", choice.keySource, [&](Backend backend) {
        return backend == Backend::x11 ? makeX11EventTapSource(gate, *mainQueue, printLine)
                                       : makeUnavailableEventTapSource();
    });
    const auto pasteboard =
        makeFirst("Clipboard", choice.clipboard, [](Backend) { return makeQtPasteboard(); });
    const auto pasteKeystroke = makeFirst("Paste", choice.paste, [&](Backend backend) {
        return backend == Backend::x11 ? makeX11PasteKeystroke(gate) : makeNoPasteKeystroke();
    });
    printLine("[nulo] Overlay: " + choice.overlay.front().reason);
    TrayItem statusItem(makeStatusNotifierItem(),
                        [] { return std::make_unique<XEmbedTrayIcon>(); });
    const std::unique_ptr<Notifications> notifications = makeDesktopNotifications();
    const std::unique_ptr<UserDefaults> userDefaults =
        makeUserDefaults(configFile.configDir() / "defaults.ini");
    const std::unique_ptr<LoginItem> loginItem =
        makeLoginItem(folders.config, QCoreApplication::applicationFilePath().toStdString());
    const std::unique_ptr<UpdateHttp> updateHttp = makeUpdateHttp(*mainQueue);
    const std::unique_ptr<OverlayPlacement> overlayPlacement = makeX11OverlayPlacement();
    const Alerts alerts(systemClock(), [&] { return overlayPlacement->visibleFrame(); });
    UpdateDialogs updateWindows(alerts);
    const std::unique_ptr<ProcessLauncher> processLauncher = makeProcessLauncher();

    // Never destroyed: threads write to it until the process is gone.
    static PipelineLog& log =
        *new PipelineLog(folders.home / "Library" / "Logs" / "nulo", systemClock(), printLine);
    AppDelegate* present = nullptr;
    AbruptExit withTheDesktop([&] {
        if (present)
            present->desktopIsGone();
        removeTakes(folders.recordings, Clock::WallTime::max());
    });
    AppDelegate delegate(
        {.mainQueue = *mainQueue,
         .clock = systemClock(),
         .print = printLine,
         .log = log,
         .configFile = configFile,
         .temporaryFolder = folders.temporary,
         .recordingsFolder = folders.recordings,
         .defaultBaseURL = build::baseURL(),
         .version = build::version(),
         .microphone = *microphone,
         .makeAudioFileWriter = makeAacFileWriter,
         .eventTapSource = *eventTapSource,
         .permissionIsTheUsersToGive = choice.keySource.front().backend == Backend::none,
         .pasteboard = *pasteboard,
         .pasteKeystroke = *pasteKeystroke,
         .makeHttpSession =
             [&](HttpSessionDelegate& session) {
                 auto made = makeHttpSession(session);
                 withTheDesktop.comeFirst();
                 return made;
             },
         .openShortcutHelp = openShortcutHelp,
         .overlayPlacement = *overlayPlacement,
         .alerts = alerts,
         .statusItem = statusItem,
         .remoteControl = *claimed.remoteControl,
         .notifications = *notifications,
         .userDefaults = *userDefaults,
         .loginItem = *loginItem,
         .updateHttp = *updateHttp,
         .updateWindows = updateWindows,
         .processLauncher = *processLauncher,
         .terminate = [] { QCoreApplication::quit(); }});
    QObject::connect(&application, &QCoreApplication::aboutToQuit,
                     [&delegate] { delegate.applicationWillTerminate(); });
    const TerminationSignals terminationSignals([] { QCoreApplication::quit(); });
    present = &delegate;
    delegate.applicationDidFinishLaunching();
    // Looking through the icon themes takes a fifth of the start, and no window is open yet.
    std::unique_ptr<SessionLockWatch> sessionLock;
    mainQueue->async([&] {
        QApplication::setWindowIcon(QIcon::fromTheme("org.nulo.Nulo"));
        sessionLock = watchSessionLock([&] { eventTapSource->letGo(); });
    });
    const int status = QApplication::exec();
    present = nullptr;
    return status;
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    using namespace nulo;
    secureStandardStreams();
    const auto commandLine = parsedCommandLine({argv + std::min(argc, 1), argv + argc});
    const std::string help(commandLineHelp());
    if (!commandLine) {
        const std::string usage = help.substr(0, help.find('\n') + 1);
        std::fputs(("nulo: " + commandLine.error().description + "\n" + usage).c_str(), stderr);
        return 2;
    }
    switch (commandLine.value().action) {
        case CommandLine::Action::help:
            std::fputs(help.c_str(), stdout);
            return 0;
        case CommandLine::Action::version:
            printLine("nulo " + std::string(build::version()));
            return 0;
        case CommandLine::Action::run:
            break;
    }
    return run(argc, argv, commandLine.value().isQuiet);
}
