#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "service/Recogniser.h"
#include "service/WorkGate.h"
#include "service/offline/SpeechEngine.h"

namespace nulo::service {

/// Decodes a take and has an engine hear it. Engines are loaded when they are first needed and
/// kept; there are never more than work at once. Takes last 15 minutes at most.
class OfflineRecogniser final : public Recogniser {
  public:
    enum class Languages { english, any };

    /// `language` is that of takes that name none; empty: the engine finds out.
    OfflineRecogniser(MakeEngine makeEngine, WorkGate::Limits limits, Languages languages,
                      std::string language = {});

    /// Loads the first engine, so that a missing model shows at start-up.
    Outcome prepare();
    /// 413, 415: see decodedSpeech(). 501 for a language that the engine does not know, 503 when
    /// too many are being recognised already.
    Result<Transcript, Failure> recognise(const Take& take,
                                          const StillWanted& stillWanted) override;

  private:
    Result<std::unique_ptr<SpeechEngine>> idleEngine();
    void putBack(std::unique_ptr<SpeechEngine> engine);

    const MakeEngine m_makeEngine;
    const Languages m_languages;
    const std::string m_language;
    WorkGate m_gate;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<SpeechEngine>> m_idle;  // under m_mutex
};

}  // namespace nulo::service
