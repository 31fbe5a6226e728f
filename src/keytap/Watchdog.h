#pragma once

#include <sys/types.h>

#include "keytap/Service.h"

namespace nulo::keytap {

/// Keeps watch over the process that holds the keyboards: one that is stopped, or that does not get
/// on with its work while keys depend on it, is killed within a second (five where the machine lets
/// nobody get on), so that the kernel gives the keyboards back. systemd keeps watch over this one
/// (WatchdogSec). To be called with SIGCHLD and SIGTERM blocked; returns the exit status of the
/// whole.
int keepWatch(pid_t worker, const Pulse& pulse);

}  // namespace nulo::keytap
