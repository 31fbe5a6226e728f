#include "doctor/Judgement.h"

#include <cmath>

#include "base/HttpUrl.h"
#include "update/VersionInfo.h"

namespace nulo {
namespace {

using Verdict = Finding::Verdict;

/// Quieter than any room: a microphone that is muted, or whose cable is out.
constexpr double deadSilence = -90;  // dBFS
/// A voice at arm's length is some 20 dB above this.
constexpr double quietRoom = -65;

double decibels(float rms) {
    return rms > 0 ? 20 * std::log10(rms) : -std::numeric_limits<double>::infinity();
}

std::string rounded(double value) {
    return std::to_string(std::lround(value));
}

}  // namespace

Finding judgedMicrophone(const Result<MicrophoneSample>& sample) {
    Finding finding{.name = "Microphone"};
    if (!sample) {
        finding.verdict = Verdict::broken;
        finding.text = sample.error().description;
        finding.advice = "Plug one in, or choose one in the desktop's sound settings";
        return finding;
    }
    const MicrophoneSample& heard = sample.value();
    finding.text = heard.name.empty() ? "the default one" : heard.name;
    finding.text += ", " + rounded(heard.rate) + " Hz, ";
    const double level = decibels(heard.loudest);
    if (heard.frames == 0) {
        finding.verdict = Verdict::broken;
        finding.text += "sends no sound";
        finding.advice = "Choose another one in the desktop's sound settings";
    } else if (level < deadSilence) {
        finding.verdict = Verdict::weak;
        finding.text += "dead silence for a second";
        finding.advice = "It may be muted: look at the desktop's sound settings";
    } else {
        finding.text += "loudest " + rounded(level) + " dBFS in a second";
        if (level < quietRoom)
            finding.advice = "Speak while this runs to see a higher figure";
    }
    return finding;
}

Finding judgedServiceFile(const Result<ServiceConfig>& config, const std::filesystem::path& file,
                          bool isThere, bool othersMayRead) {
    Finding finding{.name = "Service file"};
    if (!config) {
        finding.verdict = Verdict::broken;
        finding.text = config.error().description;
        finding.advice = "Mend or remove the file; without it the service of this machine is used";
        return finding;
    }
    finding.text = isThere ? file.string() : "none, so the service is the default one";
    const std::size_t headers = config.value().authHeaders.size();
    if (headers > 0)
        finding.text += ", with " + std::to_string(headers) + " header" + (headers > 1 ? "s" : "");
    if (headers > 0 && othersMayRead) {
        finding.verdict = Verdict::weak;
        finding.text += ", which other users can read";
        finding.advice = "Run: chmod 600 " + file.string();
    }
    return finding;
}

Finding judgedService(const std::string& baseURL, const ServiceAnswer& answer) {
    Finding finding{.name = "Service"};
    const auto url = parseHttpUrl(baseURL);
    const bool isHere = url && isThisMachine(url->host);
    finding.text = baseURL + (url && url->isEncrypted ? ", encrypted"
                              : isHere                ? ", this machine"
                                                      : "");
    if (!answer.body) {
        finding.verdict = Verdict::broken;
        finding.text += ": " + answer.body.error().description;
        finding.advice = isHere ? "Start it: systemctl --user start nulo-service.socket, or ./run "
                                  "from the sources"
                                : "Look at the network and at \"baseURL\" in service.json";
        return finding;
    }
    finding.text += ", answers in " + std::to_string(answer.roundTrip.count()) + " ms";
    const auto info = parsedVersionInfo(answer.body.value());
    if (info) {
        finding.text += ", version " + info->version;
    } else {
        finding.verdict = Verdict::weak;
        finding.text += ", but not as Nulo's service does";
        finding.advice = "Look at \"baseURL\" in service.json: another program may answer there";
    }
    return finding;
}

Finding judgedEngine(const std::optional<std::string>& check) {
    Finding finding{.name = "Engine"};
    constexpr std::string_view mark = "Understood offline: ";
    const std::size_t start = check ? check->find(mark) : std::string::npos;
    if (start == std::string::npos) {
        finding.verdict = Verdict::weak;
        finding.text = check ? "the companion answers with keys or a server of yours"
                             : "the companion's configuration is wrong, or it is not installed";
        finding.advice = "Run: nulo-service --check";
        return finding;
    }
    finding.text = check->substr(start, check->find('\n', start) - start);
    return finding;
}

Finding judgedConfig(const std::filesystem::path& file, bool isThere,
                     std::optional<std::size_t> modes, const std::string& activeMode) {
    Finding finding{.name = "Settings", .text = file.string()};
    if (!isThere) {
        finding.text += " is made at the first start";
    } else if (!modes) {
        finding.verdict = Verdict::broken;
        finding.text += " cannot be read as settings";
        finding.advice = "Mend it, or move it away: a new one is made at the next start";
    } else {
        finding.text += ", " + std::to_string(*modes) + " modes, in use: " + activeMode;
    }
    return finding;
}

}  // namespace nulo
