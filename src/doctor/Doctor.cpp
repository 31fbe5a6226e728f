#include "doctor/Doctor.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

#include "audio/Level.h"
#include "base/Clock.h"
#include "base/FileIO.h"
#include "base/HttpUrl.h"
#include "base/Lifetime.h"
#include "config/ConfigFile.h"
#include "config/ServiceConfig.h"
#include "doctor/Judgement.h"

namespace nulo {
namespace {

using Verdict = Finding::Verdict;

constexpr MainQueue::Delay listeningTime(1.0);
/// Sound servers connect in the background.
constexpr MainQueue::Delay soundServerTime(0.5);
constexpr std::size_t largestAnswer = 64 * 1024;

}  // namespace

/// One second of the microphone, of which only the loudness is kept.
struct Doctor::Take {
    std::unique_ptr<CaptureEngine> engine;
    double rate = 0;
    std::optional<Error> interruption;
    std::mutex mutex;
    std::size_t frames = 0;
    float loudest = 0;
};

Doctor::Doctor(Dependencies dependencies) : m_dependencies(std::move(dependencies)) {}

Doctor::~Doctor() = default;

void Doctor::examine(std::vector<Finding> findings,
                     std::function<void(const std::vector<Finding>&)> done) {
    m_findings = std::move(findings);
    m_done = std::move(done);
    examineKeys();
    const DesktopFacts& desktop = m_dependencies.desktop;
    if (!desktop.hasBus)
        m_findings.push_back({"Session bus", Verdict::weak, "there is none",
                              "No tray, no notifications, no remote control: start the desktop "
                              "with dbus-run-session"});
    else
        m_findings.push_back({"Tray", Verdict::good,
                              desktop.hasTray ? "shows icons" : "none that asks over the bus",
                              desktop.hasTray ? ""
                                              : "Without any, starting Nulo again opens its "
                                                "settings"});
    if (desktop.hasBus && !desktop.hasNotifications)
        m_findings.push_back({"Notifications", Verdict::weak, "no program shows any",
                              "Failures are shown in the menu and the icon only: install a "
                              "notification service, such as dunst"});
    examineFiles();
    m_dependencies.mainQueue.asyncAfter(soundServerTime,
                                        m_lifetime.guard([this] { examineMicrophone(); }));
}

void Doctor::examineKeys() {
    Finding finding{.name = m_dependencies.chord};
    EventTapSource* const source = m_dependencies.eventTapSource;
    if (m_dependencies.desktop.nuloRuns) {
        finding.text = "watched by the Nulo that runs";
    } else if (!source) {
        finding.text = "asked for when Nulo starts";
    } else if (!source->isTrusted()) {
        finding.verdict = Verdict::broken;
        finding.text = "cannot be watched";
        finding.advice =
            "See docs/shortcut.md; \"Toggle\" of org.nulo.Nulo on the session bus "
            "records without it";
    } else if (const auto tap =
                   source->createTap([](const KeyEvent&) { return EventFate::pass; })) {
        finding.text = "can be watched";
    } else {
        finding.verdict = Verdict::broken;
        finding.text = "cannot be watched: " + m_dependencies.printed();
        finding.advice = "End the program that holds it, or give that another shortcut";
    }
    m_findings.push_back(finding);
}

void Doctor::examineFiles() {
    const ConfigFile configFile(m_dependencies.configHome, [](std::string_view) {});
    const auto& file = configFile.configFile();
    const bool isThere = std::filesystem::exists(file);
    const auto config = isThere ? configFile.load() : std::nullopt;
    m_findings.push_back(judgedConfig(file, isThere,
                                      config ? std::optional(config->modes.size()) : std::nullopt,
                                      config ? config->activeModeName() : ""));

    const auto serviceFile = configFile.configDir() / "service.json";
    const auto access = foreignAccess(serviceFile);
    const auto service =
        loadServiceConfig(serviceFile, m_dependencies.defaultBaseURL, [](std::string_view) {});
    m_findings.push_back(
        judgedServiceFile(service, serviceFile, access.has_value(), access && access->mayRead));
    if (service)
        m_baseURL = service.value().baseURL;
}

void Doctor::examineMicrophone() {
    m_take = std::make_unique<Take>();
    Take& take = *m_take;
    take.engine = m_dependencies.microphone.makeEngine();
    const auto rate = take.engine->inputSampleRate();
    if (!rate)
        return microphoneIsDone(rate.error());
    take.rate = rate.value();
    const auto listen = [&take](std::span<const float> frames) {
        const std::lock_guard lock(take.mutex);
        take.frames += frames.size();
        take.loudest = std::max(take.loudest, rootMeanSquare(frames));
    };
    const auto started =
        take.engine->start(listen, [&take](const Error& reason) { take.interruption = reason; });
    if (!started)
        return microphoneIsDone(started.error());
    m_dependencies.mainQueue.asyncAfter(listeningTime, m_lifetime.guard([this] {
        m_take->engine->stop();
        if (m_take->interruption)
            return microphoneIsDone(*m_take->interruption);
        microphoneIsDone(MicrophoneSample{m_dependencies.microphone.name(), m_take->rate,
                                          m_take->frames, m_take->loudest});
    }));
}

void Doctor::microphoneIsDone(const Result<MicrophoneSample>& sample) {
    m_findings.push_back(judgedMicrophone(sample));
    m_take.reset();
    if (m_baseURL.empty())
        return finish();
    examineService();
}

void Doctor::examineService() {
    const auto start = systemClock().now();
    m_dependencies.http.get(
        m_baseURL + "/api/version", largestAnswer,
        m_lifetime.guard([this, start](const Result<std::string>& body) {
            m_findings.push_back(judgedService(
                m_baseURL, {body, std::chrono::duration_cast<std::chrono::milliseconds>(
                                      systemClock().now() - start)}));
            const auto url = parseHttpUrl(m_baseURL);
            if (url && isThisMachine(url->host))
                m_findings.push_back(judgedEngine(m_dependencies.checkCompanion()));
            finish();
        }));
}

void Doctor::finish() {
    std::exchange(m_done, nullptr)(m_findings);
}

}  // namespace nulo
