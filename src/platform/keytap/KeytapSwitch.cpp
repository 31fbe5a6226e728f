#include <QProcess>
#include <QStandardPaths>

#include "platform/WaylandBackends.h"
#include "platform/keytap/KeytapConnection.h"
#include "platform/keytap/SessionKeymap.h"

namespace nulo {

std::shared_ptr<KeytapConnection> makeKeytapConnection(const Chord& chord) {
    return std::make_shared<KeytapConnection>(
        keytap::socketPath, [chord] { return chordRequest(sessionKeymap(), chord); });
}

bool switchKeytapOn() {
    const QString pkexec = QStandardPaths::findExecutable("pkexec");
    return !pkexec.isEmpty() && QProcess::startDetached(pkexec, {"/usr/bin/systemctl", "enable",
                                                                 "--now", "nulo-keytap.socket"});
}

}  // namespace nulo
