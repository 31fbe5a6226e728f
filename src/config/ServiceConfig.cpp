#include "config/ServiceConfig.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/Ascii.h"
#include "base/FileIO.h"
#include "base/HttpUrl.h"

namespace nulo {
namespace {

using nlohmann::json;

bool isHeaderValue(const std::string& value) {
    return std::none_of(value.begin(), value.end(),
                        [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7F; });
}

/// Fills `config` from the parsed file; returns the fault, empty when there is none.
std::string decode(const json& object, ServiceConfig& config) {
    if (!object.is_object())
        return "it must hold a JSON object";
    for (const auto& [key, value] : object.items())
        if (key != "baseURL" && key != "headers")
            return "unknown key \"" + key + "\" (known: \"baseURL\", \"headers\")";

    const auto url = object.find("baseURL");
    if (url == object.end() || !url->is_string())
        return "\"baseURL\" must be a text";
    config.baseURL = url->get<std::string>();
    if (const std::string fault = serviceUrlFault(config.baseURL); !fault.empty())
        return "\"baseURL\" " + fault;

    const auto headers = object.find("headers");
    if (headers == object.end())
        return {};
    if (!headers->is_object())
        return "\"headers\" must be an object of texts";
    for (const auto& [name, value] : headers->items()) {
        if (!isHttpToken(name))
            return "\"headers\" has a name that is no header name";
        if (!value.is_string() || !isHeaderValue(value.get<std::string>()))
            return "header \"" + name + "\" must be a text of one line";
        config.authHeaders.emplace_back(name, value.get<std::string>());
    }
    return {};
}

}  // namespace

std::string serviceUrlFault(std::string_view text) {
    const auto url = parseHttpUrl(text);
    if (!url)
        return "is not a URL such as https://speech.example.org";
    if (text.find_first_of("@?#") != std::string_view::npos)
        return "must be a plain origin, without user name, query or fragment";
    return url->isSecure() ? "" : "must be https (plain http is for this machine only)";
}

Result<ServiceConfig> loadServiceConfig(const std::filesystem::path& file,
                                        std::string_view defaultBaseURL, const Print& print) {
    const auto refused = [](const std::string& what, const std::string& fault) {
        return Error{what + " refused: " + fault};
    };
    std::error_code error;
    if (!std::filesystem::exists(std::filesystem::symlink_status(file, error))) {
        const std::string fault = serviceUrlFault(defaultBaseURL);
        if (!fault.empty())
            return refused("The built-in service address", "it " + fault);
        return ServiceConfig{std::string(defaultBaseURL), {}};
    }

    // Whoever names the service gets what is dictated, and may have a program of its run as us.
    const ForeignAccess others = foreignAccess(file).value_or(ForeignAccess{});
    const std::string remedy = "; run: chmod 600 " + file.string();
    if (others.mayWrite)
        return refused(file.string(), "other users can change it" + remedy);
    const auto bytes = readFile(file, 1024 * 1024);
    if (!bytes)
        return refused(file.string(), "it cannot be read");
    const json object = json::parse(*bytes, nullptr, false);
    if (object.is_discarded())
        return refused(file.string(), "it is not valid JSON");
    ServiceConfig config;
    if (const std::string fault = decode(object, config); !fault.empty())
        return refused(file.string(), fault);
    if (!config.authHeaders.empty() && others.mayRead)
        print("WARNING: " + file.string() + " holds credentials and can be read by other users" +
              remedy);
    return config;
}

}  // namespace nulo
