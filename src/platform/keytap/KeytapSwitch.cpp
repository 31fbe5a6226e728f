#include <QProcess>
#include <QStandardPaths>

#include "base/Environment.h"
#include "platform/WaylandBackends.h"
#include "platform/keytap/ChordRequest.h"
#include "platform/keytap/KeytapConnection.h"

namespace nulo {

std::shared_ptr<KeytapConnection> makeKeytapConnection(const Chord& chord) {
    return std::make_shared<KeytapConnection>(keytap::socketPath, [chord] {
        return chordRequest(keymapOf(environmentVariable("WAYLAND_DISPLAY")), chord);
    });
}

bool switchKeytapOn() {
    const QString pkexec = QStandardPaths::findExecutable("pkexec");
    return !pkexec.isEmpty() && QProcess::startDetached(pkexec, {"/usr/bin/systemctl", "enable",
                                                                 "--now", "nulo-keytap.socket"});
}

}  // namespace nulo
