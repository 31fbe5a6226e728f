#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "audio/CaptureEngine.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Result.h"
#include "desktop/DesktopFacts.h"
#include "doctor/Finding.h"
#include "doctor/Judgement.h"
#include "hotkey/EventTap.h"
#include "update/UpdateHttp.h"

namespace nulo {

/// Tries everything that dictation needs, the way dictation uses it, beside a Nulo that runs too:
/// changes no setting and pastes nothing. Main thread, with the event loop running in between.
class Doctor {
  public:
    struct Dependencies {
        MainQueue& mainQueue;
        Microphone& microphone;
        EventTapSource* eventTapSource = nullptr;  // null where the keys must not be asked for
        std::string chord;                         // Chord::title()
        UpdateHttp& http;
        std::filesystem::path configHome;  // that of ConfigFile
        std::string_view defaultBaseURL;
        DesktopFacts desktop;
        std::function<std::optional<std::string>()> checkCompanion;  // what its --check prints
        std::function<std::string()> printed;  // what the parts printed since it was last asked
    };

    explicit Doctor(Dependencies dependencies);
    ~Doctor();

    /// Once. `findings` are those of the session and its backends; `done` gets them with the others
    /// behind, after some two seconds; the service may take longer to answer.
    void examine(std::vector<Finding> findings,
                 std::function<void(const std::vector<Finding>&)> done);

  private:
    void examineKeys();
    void examineFiles();
    void examineMicrophone();
    void microphoneIsDone(const Result<MicrophoneSample>& sample);
    void examineService();
    void finish();

    struct Take;
    Dependencies m_dependencies;
    std::vector<Finding> m_findings;
    std::function<void(const std::vector<Finding>&)> m_done;
    std::string m_baseURL;
    std::unique_ptr<Take> m_take;
    Lifetime m_lifetime;
};

}  // namespace nulo
