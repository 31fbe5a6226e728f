#include "service/app/OfflineEngines.h"

#include <algorithm>

#include "service/models/OfflineChoice.h"
#include "service/offline/PocketSphinxEngine.h"
#include "service/offline/WhisperEngine.h"

namespace nulo::service {
namespace {

bool isSame(const InstalledModel& one, const InstalledModel& other) {
    return one.name == other.name && one.model.sha256 == other.model.sha256;
}

}  // namespace

OfflineEngines::OfflineEngines(OfflineSettings settings, std::filesystem::path pocketSphinx,
                               Print print)
    : m_settings(std::move(settings)),
      m_pocketSphinx(std::move(pocketSphinx)),
      m_print(std::move(print)),
      m_folder(defaultModelFolder()) {}

std::vector<InstalledModel> OfflineEngines::installed() const {
    return canUseModels() && !m_settings.file ? m_folder.installed()
                                              : std::vector<InstalledModel>();
}

Outcome OfflineEngines::choose() {
    const std::scoped_lock lock(m_choosing);
    return chooseLocked();
}

Outcome OfflineEngines::chooseLocked() {
    {
        const std::scoped_lock lock(m_mutex);
        m_installed = installed();
    }
    m_make = nullptr;  // it is tried again after a failure
    const bool isNamed = m_settings.file || !m_settings.model.empty();
    std::vector<InstalledModel> models;
    if (m_settings.file) {
        models = {{m_settings.file->file.string(), *m_settings.file}};
    } else {
        auto tried = modelsToTry(m_settings, m_folder, machineMemory());
        if (!tried)
            return tried.error();
        if (isNamed || canUseModels())
            models = std::move(tried).value();
    }
    for (const InstalledModel& model : models) {
        auto engines = whisperEngines(model.model);
        if (engines) {
            use(std::move(engines).value(), true, understoodOffline(model.name, m_settings));
            return Success{};
        }
        if (isNamed)
            return engines.error();
        m_print("nulo-service: warning: " + engines.error().description +
                "; mend it with: nulo-service models get " + model.name);
    }
    use([folder = m_pocketSphinx] { return makePocketSphinxEngine(folder); }, false,
        understoodOffline(std::nullopt, m_settings));
    return Success{};
}

void OfflineEngines::use(MakeEngine make, bool isWhisper, std::string understands) {
    m_make = std::move(make);
    const std::scoped_lock lock(m_mutex);
    m_usesWhisper = isWhisper;
    m_understands = std::move(understands);
}

bool OfflineEngines::isOutdated() const {
    const auto now = installed();
    const std::scoped_lock lock(m_mutex);
    return !std::ranges::equal(now, m_installed, isSame);
}

Result<std::unique_ptr<SpeechEngine>> OfflineEngines::make() {
    MakeEngine make;
    {
        const std::scoped_lock lock(m_choosing);
        if (!m_make || isOutdated()) {
            if (const auto chosen = chooseLocked(); !chosen)
                return chosen.error();
            m_print(description());
        }
        make = m_make;
    }
    return make();
}

bool OfflineEngines::usesWhisper() const {
    const std::scoped_lock lock(m_mutex);
    return m_usesWhisper;
}

std::string OfflineEngines::description() const {
    const std::scoped_lock lock(m_mutex);
    return m_understands;
}

}  // namespace nulo::service
