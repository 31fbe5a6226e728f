#pragma once

#include <memory>

#include "base/MainQueue.h"
#include "transcription/HttpSession.h"
#include "update/UpdateHttp.h"

namespace nulo {

/// What the module nulo-http is made of; the program's parts reach it by platform/Backends.h.
std::unique_ptr<HttpSession> makeCurlHttpSession(HttpSessionDelegate& delegate);
std::unique_ptr<UpdateHttp> makeCurlUpdateHttp(MainQueue& mainQueue);

}  // namespace nulo
