#pragma once

#include "service/OfflineSettings.h"
#include "service/offline/SpeechEngine.h"

namespace nulo::service {

/// What makes engines of a ggml model. The file's SHA-256 is compared at once; it is loaded with
/// the first engine, for all that live beside it, each of which holds its own working memory, and
/// is let go with the last. A file that has changed since is compared again before it is loaded.
/// Fails with a line for the user, also where this build has no whisper.cpp (see tools/whisper).
Result<MakeEngine> whisperEngines(const OfflineModel& model);

}  // namespace nulo::service
