#pragma once

#include <chrono>
#include <string>

#include "base/Clock.h"
#include "service/Recogniser.h"
#include "service/WorkGate.h"
#include "service/offline/KeptEngines.h"

namespace nulo::service {

/// Decodes a take and has an engine hear it, in pieces that end at pauses. There are never more
/// engines than work at once, and one that was loaded ahead. Silence is heard by none. Takes last
/// 15 minutes at most.
class OfflineRecogniser final : public Recogniser {
  public:
    /// `language` is that of takes that name none; empty: the engine finds out. For `keep` and
    /// `isOutdated` see KeptEngines.
    OfflineRecogniser(
        MakeEngine makeEngine, WorkGate::Limits limits, std::string language = {},
        KeptEngines::Duration keep = std::chrono::minutes(10), const Clock& clock = systemClock(),
        IsOutdated isOutdated = [] { return false; });

    /// Loads the first engine, so that a missing model shows at start-up.
    Outcome prepare();
    /// A take is on its way: an engine is loaded meanwhile. Returns at once; any thread.
    void warmUp() { m_engines.warmUp(); }
    /// 413, 415: see decodedSpeech(). 501 for a language that the engine does not know, 503 when
    /// too many are being recognised already.
    Result<Transcript, Failure> recognise(const Take& take,
                                          const StillWanted& stillWanted) override;

  private:
    const std::string m_language;
    WorkGate m_gate;
    KeptEngines m_engines;
};

}  // namespace nulo::service
