#include "config/ServiceConfig.h"

#include <QUrl>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>

#include "base/FileIO.h"
#include "base/HttpUrl.h"

namespace nulo {
namespace {

using nlohmann::json;

bool isLoopback(const std::string& host) {
    static const std::regex loopback(R"(localhost|127\.\d{1,3}\.\d{1,3}\.\d{1,3}|::1)");
    return std::regex_match(host, loopback);
}

/// Token characters of a header name (RFC 9110, section 5.6.2).
bool isHeaderName(const std::string& name) {
    static const std::regex token("[!#$%&'*+.^_`|~0-9A-Za-z-]+");
    return std::regex_match(name, token);
}

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
        if (!isHeaderName(name))
            return "\"headers\" has a name that is no header name";
        if (!value.is_string() || !isHeaderValue(value.get<std::string>()))
            return "header \"" + name + "\" must be a text of one line";
        config.authHeaders.emplace_back(name, value.get<std::string>());
    }
    return {};
}

bool othersCanRead(const std::filesystem::path& file) {
    using std::filesystem::perms;
    std::error_code error;
    const auto mode = std::filesystem::status(file, error).permissions();
    return !error && (mode & (perms::group_read | perms::others_read)) != perms::none;
}

}  // namespace

std::string serviceUrlFault(std::string_view text) {
    const QUrl url(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())),
                   QUrl::StrictMode);
    // QUrl also takes what a request cannot be sent to, such as letters that are not ASCII.
    if (!url.isValid() || url.host().isEmpty() || !isValidHttpUrl(std::string(text) + "/api/chat"))
        return "is not a URL such as https://speech.example.org";
    if (!url.userInfo().isEmpty() || url.hasQuery() || url.hasFragment())
        return "must be a plain origin, without user name, query or fragment";
    if (url.scheme() == "https")
        return {};
    if (url.scheme() == "http" && isLoopback(url.host().toStdString()))
        return {};
    return "must be https (plain http is for this machine only)";
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

    const auto bytes = readFile(file, 1024 * 1024);
    if (!bytes)
        return refused(file.string(), "it cannot be read");
    const json object = json::parse(*bytes, nullptr, false);
    if (object.is_discarded())
        return refused(file.string(), "it is not valid JSON");
    ServiceConfig config;
    if (const std::string fault = decode(object, config); !fault.empty())
        return refused(file.string(), fault);
    if (!config.authHeaders.empty() && othersCanRead(file))
        print("WARNING: " + file.string() + " holds credentials and can be read by other users; " +
              "run: chmod 600 " + file.string());
    return config;
}

}  // namespace nulo
