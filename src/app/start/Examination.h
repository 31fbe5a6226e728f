#pragma once

#include <string_view>
#include <vector>

#include "doctor/Finding.h"
#include "platform/session/BackendChoice.h"

namespace nulo {

/// Prints what was found; the process's exit status, which is 1 when dictation cannot work.
int tellFindings(const std::vector<Finding>& findings, bool isJson);

/// Does what --doctor is for, beside a Nulo that may run; the process's exit status. Main thread,
/// with a QApplication, whose event loop it runs.
int examine(const SessionFacts& facts, std::string_view defaultBaseURL, bool isJson);

}  // namespace nulo
