#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QIcon>
#include <QUrl>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "app/AppDelegate.h"
#include "app/BuildInfo.h"
#include "app/commands/CommandLine.h"
#include "app/commands/Commands.h"
#include "base/PrivateFolder.h"
#include "base/StandardStreams.h"
#include "doctor/Doctor.h"
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

/// The first of a capability's backends that can be made; `tell` gets the candidate.
template <typename Make, typename Tell>
auto makeFirst(const std::vector<BackendCandidate>& candidates, Make make, Tell tell) {
    decltype(make(Backend::none)) made;
    for (std::size_t i = 0; !made && i < candidates.size(); ++i) {
        made = make(candidates[i].backend);
        if (made)
            tell(candidates[i]);
    }
    return made;
}

/// What the session's keys and clipboard are reached by.
struct SessionBackends {
    using Tell = std::function<void(const char* capability, const BackendCandidate&)>;

    SessionBackends(const BackendChoice& choice, InjectionGate& gate, MainQueue& mainQueue,
                    const Print& print, const Tell& tell) {
        const auto telling = [&](const char* capability) {
            return [&tell, capability](const BackendCandidate& made) { tell(capability, made); };
        };
        eventTapSource = makeFirst(
            choice.keySource,
            [&](Backend backend) {
                return backend == Backend::x11 ? makeX11EventTapSource(gate, mainQueue, print)
                                               : makeUnavailableEventTapSource();
            },
            telling("Key tap"));
        pasteboard = makeFirst(
            choice.clipboard, [](Backend) { return makeQtPasteboard(); }, telling("Clipboard"));
        pasteKeystroke = makeFirst(
            choice.paste,
            [&](Backend backend) {
                return backend == Backend::x11 ? makeX11PasteKeystroke(gate)
                                               : makeNoPasteKeystroke();
            },
            telling("Paste"));
        tell("Overlay", choice.overlay.front());
    }

    std::unique_ptr<EventTapSource> eventTapSource;
    std::unique_ptr<Pasteboard> pasteboard;
    std::unique_ptr<PasteKeystroke> pasteKeystroke;
};

/// The page that says how the shortcut works and what it needs, beside the installed program.
void openShortcutHelp() {
    const QFileInfo page(QCoreApplication::applicationDirPath() + "/../share/doc/nulo/shortcut.md");
    QDesktopServices::openUrl(QUrl::fromLocalFile(page.canonicalFilePath()));
}

void removeTakes(const std::filesystem::path& folder, Clock::WallTime writtenBefore) {
    removeOwnFiles(folder, "recording_", ".m4a", writtenBefore);
}

/// Why no window can be shown; empty when one can.
std::string displayObstacle(const SessionFacts& facts) {
    if (facts.display.empty() && facts.waylandDisplay.empty())
        return "Nulo needs a desktop: neither $DISPLAY nor $WAYLAND_DISPLAY is set";
    if (facts.waylandDisplay.empty() && !x11DisplayAnswers(facts.display))
        return "Nulo cannot reach the display " + facts.display +
               ": no X server answers there, or it does not let this user in";
    return {};
}

/// Prints what the doctor found; the process's exit status.
int tell(const std::vector<Finding>& findings, bool isJson) {
    std::fputs((isJson ? asJson(findings) : asText(findings)).c_str(), stdout);
    return canDictate(findings) ? 0 : 1;
}

/// Does what --doctor is for; the process's exit status.
int examine(const SessionFacts& facts, bool isJson) {
    std::string printed;
    const Print collect = [&printed](std::string_view line) { printed += line; };
    std::vector<Finding> findings{{"Session", Finding::Verdict::good, described(facts), ""}};
    const std::unique_ptr<MainQueue> mainQueue = makeQtMainQueue();
    const std::unique_ptr<Microphone> microphone = makeMicrophone(*mainQueue, collect);
    const std::unique_ptr<UpdateHttp> http = makeUpdateHttp(*mainQueue);
    InjectionGate gate;
    const SessionBackends backends(
        chooseBackends(facts), gate, *mainQueue, collect,
        [&](const char* capability, const BackendCandidate& made) {
            findings.push_back(
                {capability,
                 made.backend == Backend::none ? Finding::Verdict::weak : Finding::Verdict::good,
                 made.reason, ""});
        });
    Doctor doctor({.mainQueue = *mainQueue,
                   .microphone = *microphone,
                   .eventTapSource = *backends.eventTapSource,
                   .http = *http,
                   .configHome = userFolders().home,
                   .defaultBaseURL = build::baseURL(),
                   .desktop = desktopFacts(),
                   .checkCompanion =
                       [] {
                           return programOutput(
                               QCoreApplication::applicationDirPath().toStdString() +
                                   "/nulo-service",
                               {"--check"});
                       },
                   .printed = [&printed] { return std::exchange(printed, ""); }});
    int status = 1;
    doctor.examine(std::move(findings), [&](const std::vector<Finding>& all) {
        status = tell(all, isJson);
        QCoreApplication::quit();
    });
    QCoreApplication::exec();
    return status;
}

int run(int argc, char** argv, const CommandLine& commandLine) {
    const Clock::WallTime startTime = systemClock().wallTime();
    const SessionFacts facts = sessionFacts();
    if (const std::string obstacle = displayObstacle(facts); !obstacle.empty()) {
        if (commandLine.action == CommandLine::Action::doctor)
            return tell({{"Session", Finding::Verdict::broken, obstacle, ""}}, commandLine.isJson);
        printLine(obstacle + ".");
        return 1;
    }
    QApplication application(argc, argv);
    QApplication::setApplicationName("nulo");
    QApplication::setApplicationVersion(
        QString::fromUtf8(build::version().data(), build::version().size()));
    QApplication::setDesktopFileName("org.nulo.Nulo");
    QApplication::setQuitOnLastWindowClosed(false);

    if (commandLine.action == CommandLine::Action::doctor)
        return examine(facts, commandLine.isJson);
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

    if (commandLine.isQuiet)
        silenceStandardOutput();
    const UserFolders folders = userFolders();
    removeTakes(folders.recordings, startTime);  // that an earlier run left
    const ConfigFile configFile(folders.home, printLine);
    const std::unique_ptr<MainQueue> mainQueue = makeQtMainQueue();
    const std::unique_ptr<Microphone> microphone = makeMicrophone(*mainQueue, printLine);
    InjectionGate gate;
    const BackendChoice choice = chooseBackends(facts);
    const SessionBackends backends(
        choice, gate, *mainQueue, printLine,
        [](const char* capability, const BackendCandidate& made) {
            printLine(std::string("[nulo] ") + capability + ": " + made.reason);
        });
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
         .eventTapSource = *backends.eventTapSource,
         .permissionIsTheUsersToGive = choice.keySource.front().backend == Backend::none,
         .pasteboard = *backends.pasteboard,
         .pasteKeystroke = *backends.pasteKeystroke,
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
         .terminate = [] { QCoreApplication::quit(); },
         .stateFolder = folders.state});
    QObject::connect(&application, &QCoreApplication::aboutToQuit,
                     [&delegate] { delegate.applicationWillTerminate(); });
    const TerminationSignals terminationSignals([] { QCoreApplication::quit(); });
    present = &delegate;
    delegate.applicationDidFinishLaunching();
    // Looking through the icon themes takes a fifth of the start, and no window is open yet.
    std::unique_ptr<SessionLockWatch> sessionLock;
    mainQueue->async([&] {
        QApplication::setWindowIcon(QIcon::fromTheme("org.nulo.Nulo"));
        sessionLock = watchSessionLock([&] { backends.eventTapSource->letGo(); });
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
        case CommandLine::Action::doctor:
        case CommandLine::Action::run:
            break;
        default: {
            const QCoreApplication application(argc, argv);
            const int status = carryOut(commandLine.value(), userFolders().state, askRunningNulo);
            // The bus's thread may still be at work, with what the exit would destroy.
            std::fflush(nullptr);
            std::_Exit(status);
        }
    }
    return run(argc, argv, commandLine.value());
}
