#pragma once

#include "service/OfflineSettings.h"
#include "service/offline/SpeechEngine.h"

namespace nulo::service {

/// Loads a ggml model once, for any number of engines, each of which holds its own working memory.
/// The file's SHA-256 is compared first. Fails with a line for the user, also where this build has
/// no whisper.cpp (see tools/whisper).
Result<MakeEngine> loadWhisperModel(const OfflineModel& model);

}  // namespace nulo::service
