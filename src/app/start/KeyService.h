#pragma once

#include "doctor/Finding.h"
#include "platform/keytap/KeytapConnection.h"
#include "platform/session/BackendChoice.h"

namespace nulo {

/// Whether it is to be used rather than another backend that there is: it serves this program, or
/// may without anybody's doing.
bool isUsable(const KeytapConnection::Status& status);

/// What is to be said of nulo-keytap. `status` is its answer to this program, `nuloRuns` whether
/// another is there whom it may serve, `isOnlyWay` whether nothing else could watch the keys.
Finding judgedKeytap(KeytapInstallation installation, const KeytapConnection::Status& status,
                     bool nuloRuns, bool isOnlyWay);

}  // namespace nulo
