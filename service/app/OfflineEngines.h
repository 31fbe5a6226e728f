#pragma once

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "base/Print.h"
#include "base/Result.h"
#include "service/OfflineSettings.h"
#include "service/models/ModelFolder.h"
#include "service/offline/SpeechEngine.h"

namespace nulo::service {

/// Makes the engines that work offline: with the model that is named or the best installed one that
/// can be loaded, otherwise PocketSphinx. When models have come or gone since it chose, it chooses
/// again. Any thread.
class OfflineEngines {
  public:
    /// `pocketSphinx` is the folder of that engine's model; what is wrong with installed models and
    /// what is chosen later is printed.
    OfflineEngines(OfflineSettings settings, std::filesystem::path pocketSphinx, Print print);

    /// Reads and checks models; done by make() where it was not yet. Fails where a model that is
    /// named cannot be used.
    Outcome choose();
    /// Whether models have come or gone since then; quick.
    bool isOutdated() const;
    Result<std::unique_ptr<SpeechEngine>> make();

    bool usesWhisper() const;
    /// A line for the user: which engine, and what it understands.
    std::string description() const;

  private:
    std::vector<InstalledModel> installed() const;
    Outcome chooseLocked();
    void use(MakeEngine make, bool isWhisper, std::string understands);

    const OfflineSettings m_settings;
    const std::filesystem::path m_pocketSphinx;
    const Print m_print;
    const ModelFolder m_folder;
    std::mutex m_choosing;  // guards m_make; held while models are read
    MakeEngine m_make;
    mutable std::mutex m_mutex;  // guards the rest
    std::vector<InstalledModel> m_installed;
    bool m_usesWhisper = false;
    std::string m_understands;
};

}  // namespace nulo::service
