#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>
#include <string>

#include "app/AppDelegate.h"
#include "app/BuildInfo.h"
#include "platform/BackendChoice.h"
#include "platform/Backends.h"
#include "platform/InjectionGate.h"
#include "platform/TerminationSignals.h"
#include "platform/UserFolders.h"

namespace nulo {
namespace {

std::unique_ptr<EventTapSource> makeKeyTap(const SessionFacts& facts, InjectionGate& gate) {
    const KeyTapChoice choice = chooseKeyTap(facts);
    printLine("[nulo] Key tap: " + choice.reason);
    return choice.backend == KeyTapChoice::Backend::x11 ? makeX11EventTapSource(gate, printLine)
                                                        : makeUnavailableEventTapSource();
}

/// The page that says how the shortcut works and what it needs, beside the installed program.
void openShortcutHelp() {
    const QFileInfo page(QCoreApplication::applicationDirPath() + "/../share/doc/nulo/shortcut.md");
    QDesktopServices::openUrl(QUrl::fromLocalFile(page.canonicalFilePath()));
}

int run(int argc, char** argv) {
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
    QApplication::setQuitOnLastWindowClosed(false);

    const UserFolders folders = userFolders();
    const ConfigFile configFile(folders.home, printLine);
    const std::unique_ptr<MainQueue> mainQueue = makeQtMainQueue();
    const std::unique_ptr<Microphone> microphone = makeMicrophone(*mainQueue, printLine);
    InjectionGate gate;
    const std::unique_ptr<EventTapSource> eventTapSource = makeKeyTap(facts, gate);
    const std::unique_ptr<PasteKeystroke> pasteKeystroke = makeX11PasteKeystroke(gate, printLine);
    const std::unique_ptr<Pasteboard> pasteboard = makeQtPasteboard();

    AppDelegate delegate({.mainQueue = *mainQueue,
                          .clock = systemClock(),
                          .print = printLine,
                          .log = PipelineLog::shared(),
                          .configFile = configFile,
                          .temporaryFolder = folders.temporary,
                          .defaultBaseURL = build::baseURL(),
                          .microphone = *microphone,
                          .makeAudioFileWriter = makeLibavAacWriter,
                          .eventTapSource = *eventTapSource,
                          .pasteboard = *pasteboard,
                          .pasteKeystroke = *pasteKeystroke,
                          .makeHttpSession = makeCurlHttpSession,
                          .openShortcutHelp = openShortcutHelp});
    QObject::connect(&application, &QCoreApplication::aboutToQuit,
                     [&delegate] { delegate.applicationWillTerminate(); });
    const auto terminationSignals = onTerminationSignal([] { QCoreApplication::quit(); });
    delegate.applicationDidFinishLaunching();
    return QApplication::exec();
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    return nulo::run(argc, argv);
}
