#pragma once

#include <span>
#include <string>
#include <string_view>

namespace nulo::service {

/// A multilingual model that the whisper.cpp project publishes. Sizes are decimal megabytes,
/// rounded; what the engine takes with a quantised model was reckoned from its size.
struct KnownModel {
    std::string_view name;
    unsigned megabytes = 0;
    unsigned memoryMegabytes = 0;
    unsigned languages = 0;
    std::string_view sha1;  // empty where the project publishes no digest
};

/// From the quickest to the one that understands best.
std::span<const KnownModel> knownModels();

/// Null for a name that is not in the table.
const KnownModel* knownModel(std::string_view name);

/// Letters, digits, '-' and '_': what a model may be called on the command line and on the disk.
bool isModelName(std::string_view name);

/// "ggml-NAME.bin", as the project calls its files.
std::string modelFileName(std::string_view name);

/// The folder that the project publishes its models in; https.
std::string_view usualModelSource();

}  // namespace nulo::service
