#pragma once

#include <memory>

namespace nulo {

class KeytapConnection;

/// To the service of the system, with the Alt keys of this session; connects when it is first
/// asked to.
std::shared_ptr<KeytapConnection> makeKeytapConnection();

/// Asks the user, through polkit, to switch nulo-keytap's socket on. False when it is on already,
/// not installed, or nobody can ask.
bool switchKeytapOn();

}  // namespace nulo
