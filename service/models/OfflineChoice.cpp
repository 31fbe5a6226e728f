#include "service/models/OfflineChoice.h"

#include <algorithm>

#include "service/models/ModelTable.h"

namespace nulo::service {
namespace {

std::uintmax_t memoryFor(const InstalledModel& model) {
    const KnownModel* known = knownModel(model.name);
    return known ? std::uintmax_t{known->memoryMegabytes} * 1'000'000 : model.bytes;
}

}  // namespace

bool canUseModels() {
#ifdef NULO_HAS_WHISPER
    return true;
#else
    return false;
#endif
}

Result<std::vector<InstalledModel>> modelsToTry(const OfflineSettings& settings,
                                                const ModelFolder& folder,
                                                const MachineMemory& memory) {
    if (!settings.model.empty()) {
        auto named = folder.installed(settings.model);
        if (!named)
            return Error{"offline.model: " + settings.model +
                         " is not installed; get it with: nulo-service models get " +
                         settings.model};
        return std::vector{*std::move(named)};
    }
    std::vector<InstalledModel> models = folder.installed();
    std::ranges::reverse(models);
    std::erase_if(models, [&](const InstalledModel& model) {
        return memoryFit(memoryFor(model), memory) == MemoryFit::never;
    });
    return models;
}

std::string understoodOffline(const std::optional<std::string>& model,
                              const OfflineSettings& settings) {
    const std::string more = "nulo-service models get small";
    if (!model)
        return "Understood offline: English only, about one word in four wrong. For French and 98 "
               "other languages: " +
               (canUseModels() ? more : "build Nulo again after tools/whisper, then " + more);
    const std::string with = " (whisper.cpp, model " + *model + ")";
    if (!settings.language.empty())
        return "Understood offline: \"" + settings.language + "\", as offline.language says" + with;
    const KnownModel* known = knownModel(*model);
    if (!known)
        return "Understood offline: the languages of the model" + with;
    const bool isSmall = known < knownModel("small-q5_1");
    return "Understood offline: French, English and " + std::to_string(known->languages - 2) +
           " other languages" + with + (isSmall ? ". With fewer mistakes: " + more : "");
}

}  // namespace nulo::service
