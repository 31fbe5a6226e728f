#include "app/start/KeyService.h"

namespace nulo {
namespace {

using keytap::Reason;

constexpr const char* startAnew = "Run: sudo systemctl restart nulo-keytap.socket";
constexpr const char* seeWhy = "See why: systemctl status nulo-keytap.service";

std::string adviceOn(const KeytapConnection::Status& status) {
    if (status.state == KeytapConnection::State::off)
        return startAnew;
    if (status.state == KeytapConnection::State::admitted && !status.chordFault.empty())
        return "Write another after chord= in defaults.ini, or nothing";
    switch (status.reason) {
        case Reason::otherSession:
            return "Log in at this machine's own screen: programs started over the network, or on "
                   "another seat, are not served";
        case Reason::secondClient:
            return "End that program: the one that connects first is served";
        case Reason::noKeyboard:
            return "Plug one in";
        case Reason::keyboardTaken:
            return "End what remaps keys, such as keyd, or have it leave that keyboard alone";
        case Reason::noUinput:
            return "Run: sudo modprobe uinput && sudo udevadm trigger /dev/uinput";
        case Reason::badRequest:
            return startAnew;
        default:
            return seeWhy;
    }
}

}  // namespace

bool isUsable(const KeytapConnection::Status& status) {
    // A keyboard without a cable connects when it is touched.
    return keytapObstacle(status).empty() ||
           (status.state == KeytapConnection::State::admitted && status.chordFault.empty() &&
            status.reason != Reason::noUinput);
}

Finding judgedKeytap(KeytapInstallation installation, const KeytapConnection::Status& status,
                     bool nuloRuns, bool isOnlyWay) {
    using Verdict = Finding::Verdict;
    Finding finding{.name = "Key service"};
    const bool isWatching = status.isServing && status.chordFault.empty();
    const Verdict bad = isOnlyWay ? Verdict::broken : Verdict::weak;
    if (installation == KeytapInstallation::none) {
        finding.text = "nulo-keytap is not installed";
        if (isOnlyWay) {
            finding.verdict = bad;
            finding.advice = "Install Nulo's package, or sudo cmake --install build/release";
        }
    } else if (installation == KeytapInstallation::off) {
        finding.verdict = bad;
        finding.text = "nulo-keytap is installed, but its socket is off";
        finding.advice = "Run: sudo systemctl enable --now nulo-keytap.socket";
    } else if (nuloRuns && status.reason == Reason::secondClient) {
        finding.text = "another program of yours is connected, as Nulo is while it runs";
    } else if (const std::string obstacle = keytapObstacle(status); !obstacle.empty()) {
        finding.verdict = isWatching ? Verdict::weak : bad;
        finding.text = (isWatching ? "serves this program, but " : "") + obstacle;
        finding.advice = adviceOn(status);
    } else if (status.state != KeytapConnection::State::admitted) {
        finding.verdict = Verdict::weak;
        finding.text = "has not answered";
        finding.advice = seeWhy;
    } else {
        finding.text = status.isServing
                           ? "serves this program"
                           : "serves this program, not yet: " + keytapText(status.reason);
    }
    return finding;
}

}  // namespace nulo
