#include "app/start/Examination.h"

#include <QCoreApplication>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "app/start/ChosenChord.h"
#include "app/start/KeyService.h"
#include "config/ConfigFile.h"
#include "doctor/Doctor.h"
#include "pasting/InjectionGate.h"
#include "platform/Backends.h"
#include "platform/WaylandBackends.h"
#include "platform/system/UserFolders.h"

namespace nulo {
namespace {

constexpr auto longestKeytapAnswer = std::chrono::seconds(3);

/// Null where asking would take the chord from the Nulo that runs, or put questions to the user.
std::unique_ptr<EventTapSource> harmlessEventTapSource(Backend backend, const Chord& chord,
                                                       InjectionGate& gate, MainQueue& mainQueue,
                                                       const Print& print) {
    if (backend == Backend::x11)
        return makeX11EventTapSource(gate, mainQueue, print, chord);
    return backend == Backend::none ? makeUnavailableEventTapSource() : nullptr;
}

/// Asks for the chord as Nulo does, and takes it for as long as that.
KeytapConnection::Status keytapStatus(KeytapInstallation installation, const Chord& chord) {
    if (installation != KeytapInstallation::on)
        return {};
    return makeKeytapConnection(chord)->awaitStatus(
        [](const KeytapConnection::Status& status) {
            return status.state != KeytapConnection::State::asked &&
                   (status.isServing || status.reason != keytap::Reason::starting);
        },
        longestKeytapAnswer);
}

Finding chosen(const char* capability, const BackendCandidate& candidate) {
    return {capability,
            candidate.backend == Backend::none ? Finding::Verdict::weak : Finding::Verdict::good,
            candidate.reason, ""};
}

}  // namespace

int tellFindings(const std::vector<Finding>& findings, bool isJson) {
    std::fputs((isJson ? asJson(findings) : asText(findings)).c_str(), stdout);
    return canDictate(findings) ? 0 : 1;
}

int examine(const SessionFacts& facts, std::string_view defaultBaseURL, bool isJson) {
    std::string printed;
    const Print collect = [&printed](std::string_view line) { printed += line; };
    const ConfigFile configFile(userFolders().home, collect);
    const Chord chord =
        chosenChord(*makeUserDefaults(configFile.configDir() / "defaults.ini"), collect);
    const std::string refusedChord = std::exchange(printed, "");
    const BackendChoice choice = chooseBackends(facts, chord);
    const DesktopFacts desktop = desktopFacts();
    const KeytapConnection::Status keytapAnswer = keytapStatus(facts.keytap, chord);
    const Backend lastKeys = choice.keySource.back().backend;
    const Finding keyService =
        judgedKeytap(facts.keytap, keytapAnswer, desktop.nuloRuns,
                     lastKeys == Backend::keytap || lastKeys == Backend::none);
    const auto usable =
        [&](const std::vector<BackendCandidate>& candidates) -> const BackendCandidate& {
        const bool isLeftOut = candidates.front().backend == Backend::keytap &&
                               candidates.size() > 1 && !desktop.nuloRuns &&
                               !isUsable(keytapAnswer);
        return candidates[isLeftOut];
    };
    std::vector<Finding> findings{{"Session", Finding::Verdict::good, described(facts), ""},
                                  chosen("Key tap", usable(choice.keySource)),
                                  chosen("Clipboard", choice.clipboard.front()),
                                  chosen("Paste", usable(choice.paste)),
                                  chosen("Overlay", choice.overlay.front())};
    if (facts.isWayland())
        findings.push_back(keyService);
    if (!refusedChord.empty())
        findings.push_back({"Shortcut", Finding::Verdict::weak, refusedChord,
                            "Write another after chord= there, or nothing"});
    const std::unique_ptr<MainQueue> mainQueue = makeQtMainQueue();
    const std::unique_ptr<Microphone> microphone = makeMicrophone(*mainQueue, collect);
    const std::unique_ptr<UpdateHttp> http = makeUpdateHttp(*mainQueue);
    InjectionGate gate;
    const std::unique_ptr<EventTapSource> eventTapSource =
        harmlessEventTapSource(usable(choice.keySource).backend, chord, gate, *mainQueue, collect);
    Doctor doctor({.mainQueue = *mainQueue,
                   .microphone = *microphone,
                   .eventTapSource = eventTapSource.get(),
                   .chord = chord.title(),
                   .http = *http,
                   .configHome = userFolders().home,
                   .defaultBaseURL = defaultBaseURL,
                   .desktop = desktop,
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
        status = tellFindings(all, isJson);
        QCoreApplication::quit();
    });
    QCoreApplication::exec();
    return status;
}

}  // namespace nulo
