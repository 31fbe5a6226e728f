#include "service/models/ModelTable.h"

#include <algorithm>
#include <array>

#include "base/Ascii.h"

namespace nulo::service {
namespace {

// Of the quantised forms the project lists one with its digest.
constexpr std::array models = {
    KnownModel{"tiny-q5_1", 32, 230, 99, ""},
    KnownModel{"tiny", 78, 273, 99, "bd577a113a864445d4c299885e0cb97d4ba92b5f"},
    KnownModel{"base-q5_1", 60, 300, 99, ""},
    KnownModel{"base", 148, 388, 99, "465707469ff3a37a2b9b8d8f89f2f99de7299dac"},
    KnownModel{"small-q5_1", 190, 560, 99, ""},
    KnownModel{"small", 488, 852, 99, "55356645c2b361a969dfd0ef2c5a50d530afd8d5"},
    KnownModel{"medium-q5_0", 539, 1110, 99, ""},
    KnownModel{"medium", 1534, 2100, 99, "fd9727b6e1217c2f614f9b698455c4ffd82463b4"},
    KnownModel{"large-v3-turbo-q5_0", 574, 1050, 100, "e050f7970618a659205450ad97eb95a18d69c9ee"},
    KnownModel{"large-v3-turbo", 1625, 2100, 100, "4af2b29d7ec73d781377bfd1758ca957a807e941"},
};

}  // namespace

std::span<const KnownModel> knownModels() {
    return models;
}

const KnownModel* knownModel(std::string_view name) {
    const auto* found = std::ranges::find(models, name, &KnownModel::name);
    return found == models.end() ? nullptr : found;
}

bool isModelName(std::string_view name) {
    return !name.empty() && name.size() <= 64 && isAsciiAlphanumeric(name.front()) &&
           std::ranges::all_of(
               name, [](char c) { return isAsciiAlphanumeric(c) || c == '-' || c == '_'; });
}

std::string modelFileName(std::string_view name) {
    return "ggml-" + std::string(name) + ".bin";
}

std::string_view usualModelSource() {
    return "https://huggingface.co/ggerganov/whisper.cpp/resolve/main";
}

}  // namespace nulo::service
