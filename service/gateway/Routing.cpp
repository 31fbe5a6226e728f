#include "service/gateway/Routing.h"

#include <algorithm>
#include <array>

namespace nulo::service {
namespace {

struct Vendor {
    std::string_view name;
    const char* transcriptionModel;
    const char* chatModel;
};
constexpr std::array vendors = {
    Vendor{"openai", "gpt-4o-mini-transcribe", "gpt-5.4-mini"},
    Vendor{"mistral", "voxtral-mini-latest", "mistral-small-latest"},
};

const Vendor* vendorNamed(std::string_view name) {
    const auto found = std::find_if(vendors.begin(), vendors.end(),
                                    [&](const Vendor& vendor) { return vendor.name == name; });
    return found == vendors.end() ? nullptr : &*found;
}

/// Empty when no vendor that is known here has the model.
std::string_view vendorOf(std::string_view model) {
    for (const char* family : {"gpt-", "chatgpt-", "o1", "o3", "o4"})
        if (model.starts_with(family))
            return "openai";
    for (const char* family : {"mistral-", "ministral-", "magistral-", "codestral-", "devstral-",
                               "voxtral-", "pixtral-", "open-mistral-", "open-mixtral-"})
        if (model.starts_with(family))
            return "mistral";
    return {};
}

enum class Task { transcription, chat };

/// The model that `provider` would use for the task; empty when it cannot do it.
std::string modelOf(const Provider& provider, Task task) {
    const bool transcribes = task == Task::transcription;
    const std::string& chosen = transcribes ? provider.transcriptionModel : provider.chatModel;
    const Vendor* vendor = vendorNamed(provider.name);
    if (!chosen.empty() || !vendor)
        return chosen;
    return transcribes ? vendor->transcriptionModel : vendor->chatModel;
}

/// The first of the configured ones that can stand in for `wanted`.
Route standIn(const GatewayConfig& config, std::string_view wanted, Task task) {
    const std::string why = wanted.empty() ? "the request names no provider that is known here"
                                           : std::string(wanted) + " is not configured";
    for (const std::string_view name : {"local", "openai", "mistral"}) {
        const Provider* provider = config.provider(name);
        const std::string model = provider ? modelOf(*provider, task) : "";
        if (!model.empty())
            return {provider, model, why + ", this one stands in"};
    }
    return {
        nullptr, "",
        config.providers.empty() ? "no provider is configured" : why + ", and no other can do it"};
}

}  // namespace

Route transcriptionRoute(const GatewayConfig& config, std::string_view provider,
                         std::string_view model) {
    const bool isKnown = provider == "local" || vendorNamed(provider);
    const Provider* named = config.provider(provider);
    const std::string own = named ? modelOf(*named, Task::transcription) : "";
    if (own.empty())
        return standIn(config, isKnown ? provider : "", Task::transcription);
    const bool asRequested =
        provider != "local" && named->transcriptionModel.empty() && !model.empty();
    return {named, asRequested ? std::string(model) : own, "the request names it"};
}

Route chatRoute(const GatewayConfig& config, std::string_view model) {
    for (const Provider& provider : config.providers)
        if (!model.empty() && provider.chatModel == model)
            return {&provider, provider.chatModel, "it is configured with the model asked for"};
    const std::string_view vendor = vendorOf(model);
    const Provider* named = config.provider(vendor);
    if (named) {
        const std::string own = named->chatModel;
        return {named, own.empty() ? std::string(model) : own, "the model asked for is its own"};
    }
    if (!vendor.empty() || model.empty())
        return standIn(config, vendor, Task::chat);
    const Provider* local = config.provider("local");
    if (local && !local->chatModel.empty())
        return {local, local->chatModel, "the model asked for is no vendor's"};
    return {nullptr, "", "no configured provider has the model asked for"};
}

std::string chatModelFor(std::string_view cleanupModel) {
    if (!vendorOf(cleanupModel).empty())
        return std::string(cleanupModel);
    return vendorNamed(cleanupModel == "openai" ? "openai" : "mistral")->chatModel;
}

}  // namespace nulo::service
