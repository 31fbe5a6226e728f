#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QIcon>
#include <QUrl>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "app/AppDelegate.h"
#include "app/BuildInfo.h"
#include "app/commands/CommandLine.h"
#include "app/commands/Commands.h"
#include "app/start/ChosenChord.h"
#include "app/start/Examination.h"
#include "app/start/SessionBackends.h"
#include "base/PrivateFolder.h"
#include "base/StandardStreams.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
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

/// This program's arguments for the toolkit, which is told the window system unless the user does
/// so in $QT_QPA_PLATFORM: set there, it would go on to every program that is started from here.
class ToolkitArguments {
  public:
    ToolkitArguments(int argc, char** argv, std::string platform)
        : m_platform(std::move(platform)), m_values(argv, argv + argc) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            m_values.insert(m_values.end(), {m_option.data(), m_platform.data()});
        m_count = static_cast<int>(m_values.size());
        m_values.push_back(nullptr);
    }
    /// Both belong to the application as long as it lives.
    int& count() { return m_count; }
    char** values() { return m_values.data(); }

  private:
    std::string m_option = "-platform";
    std::string m_platform;
    std::vector<char*> m_values;
    int m_count = 0;
};

/// Offers what the shortcut needs where that can be switched on; else shows the page that says how
/// it works and what it needs, beside the installed program.
void openShortcutSettings() {
    const SessionFacts facts = sessionFacts();
    if (facts.isWayland() && facts.keytap == KeytapInstallation::off && switchKeytapOn())
        return;
    const QFileInfo page(QCoreApplication::applicationDirPath() + "/../share/doc/nulo/shortcut.md");
    QDesktopServices::openUrl(QUrl::fromLocalFile(page.canonicalFilePath()));
}

void removeTakes(const std::filesystem::path& folder, Clock::WallTime writtenBefore) {
    removeOwnFiles(folder, "recording_", ".m4a", writtenBefore);
}

/// Why no window can be shown; empty when one can. `named` is what the environment names, `facts`
/// what answers of it.
std::string displayObstacle(const SessionFacts& named, const SessionFacts& facts) {
    if (named.display.empty() && named.waylandDisplay.empty())
        return "Nulo needs a desktop: neither $DISPLAY nor $WAYLAND_DISPLAY is set";
    if (!facts.display.empty() || !facts.waylandDisplay.empty())
        return {};
    if (named.waylandDisplay.empty())
        return "Nulo cannot reach the display " + named.display +
               ": no X server answers there, or it does not let this user in";
    return "Nulo cannot reach the Wayland display " + named.waylandDisplay +
           ": no compositor answers there";
}

int run(int argc, char** argv, const CommandLine& commandLine) {
    const Clock::WallTime startTime = systemClock().wallTime();
    SessionFacts facts = sessionFacts();
    const SessionFacts named = facts;
    lookAtDisplays(facts);
    if (const std::string obstacle = displayObstacle(named, facts); !obstacle.empty()) {
        if (commandLine.action == CommandLine::Action::doctor)
            return tellFindings({{"Session", Finding::Verdict::broken, obstacle, ""}},
                                commandLine.isJson);
        printLine(obstacle + ".");
        return 1;
    }
    ToolkitArguments arguments(argc, argv, chooseBackends(facts).toolkitPlatform);
    QApplication application(arguments.count(), arguments.values());
    QApplication::setApplicationName("nulo");
    QApplication::setApplicationVersion(
        QString::fromUtf8(build::version().data(), build::version().size()));
    QApplication::setDesktopFileName("org.nulo.Nulo");
    QApplication::setQuitOnLastWindowClosed(false);

    if (!facts.waylandDisplay.empty())
        facts.hasPortal = portalIsOnTheBus();
    if (commandLine.action == CommandLine::Action::doctor)
        return examine(facts, build::baseURL(), commandLine.isJson);
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
    const std::unique_ptr<UserDefaults> userDefaults =
        makeUserDefaults(configFile.configDir() / "defaults.ini");
    const Chord chord = chosenChord(*userDefaults, printLine);
    const BackendChoice choice = chooseBackends(facts, chord);
    const SessionBackends backends(facts, choice, chord, gate, *mainQueue, configFile.configDir(),
                                   userDefaults->boolean("privateClipboard").value_or(false),
                                   printLine);
    TrayItem statusItem(makeStatusNotifierItem(),
                        [] { return std::make_unique<XEmbedTrayIcon>(); });
    const std::unique_ptr<Notifications> notifications = makeDesktopNotifications();
    const std::unique_ptr<LoginItem> loginItem =
        makeLoginItem(folders.config, QCoreApplication::applicationFilePath().toStdString());
    const std::unique_ptr<UpdateHttp> updateHttp = makeUpdateHttp(*mainQueue);
    const Alerts alerts(systemClock(), [&] { return backends.overlayPlacement->visibleFrame(); });
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
         .chord = chord.title(),
         .permissionIsTheUsersToGive = choice.keySource.front().backend == Backend::none ||
                                       (choice.keySource.front().backend == Backend::keytap &&
                                        facts.keytap == KeytapInstallation::off),
         .pasteboard = *backends.pasteboard,
         .pasteKeystroke = *backends.pasteKeystroke,
         .makeHttpSession =
             [&](HttpSessionDelegate& session) {
                 auto made = makeHttpSession(session);
                 withTheDesktop.comeFirst();
                 return made;
             },
         .openShortcutHelp = openShortcutSettings,
         .overlayPlacement = *backends.overlayPlacement,
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
