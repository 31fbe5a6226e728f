#include "service/GatewayConfig.h"

#include <sys/stat.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "base/Ascii.h"
#include "base/Environment.h"
#include "base/FileIO.h"
#include "base/HttpUrl.h"
#include "base/Text.h"
#include "service/Sha256.h"

namespace nulo::service {
namespace {

using nlohmann::json;

constexpr std::uintmax_t largestFile = 1024 * 1024;

/// Thrown by the readers below and caught in readGatewayConfig().
struct Fault {
    std::string key;
    std::string what;
};

std::string joined(const std::set<std::string>& names) {
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "\"" : ", \"") + name + "\"";
    return list;
}

/// An object of the file, and where in the file it stands.
class Section {
  public:
    Section(const json& value, std::string path) : m_value(value), m_path(std::move(path)) {
        if (!value.is_object())
            throw Fault{m_path, "must be a JSON object"};
    }

    void allow(const std::set<std::string>& known) const {
        for (const auto& [key, value] : m_value.items())
            if (!known.contains(key))
                throw Fault{pathOf(printable(key)),
                            "is no key that is known here; known are " + joined(known)};
    }
    const json* find(const char* key) const {
        const auto entry = m_value.find(key);
        return entry == m_value.end() ? nullptr : &*entry;
    }
    /// A text of one line that is not empty; nothing when the key is absent.
    std::optional<std::string> text(const char* key) const {
        const json* value = find(key);
        if (!value)
            return std::nullopt;
        if (!value->is_string())
            throw Fault{pathOf(key), "must be a text"};
        const std::string& text = value->get_ref<const std::string&>();
        const bool oneLine = std::all_of(text.begin(), text.end(), [](unsigned char character) {
            return character >= 32 && character != 127;
        });
        if (text.empty() || !oneLine)
            throw Fault{pathOf(key), "must be a text of one line that is not empty"};
        return text;
    }
    std::string pathOf(const std::string& key) const {
        return m_path.empty() ? key : m_path + "." + key;
    }

  private:
    /// A key may be a secret that was put in the wrong place, or hold anything at all.
    static std::string printable(const std::string& key) {
        const bool isName =
            key.size() <= 30 && std::all_of(key.begin(), key.end(), [](unsigned char c) {
                return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
            });
        return isName ? key : "…";
    }

    const json& m_value;
    const std::string m_path;
};

std::filesystem::path resolved(const std::string& text, const std::filesystem::path& folder) {
    const std::filesystem::path path(text);
    return path.is_absolute() ? path : folder / path;
}

std::string checkedKey(const std::string& key, const std::string& path) {
    const bool visible = std::all_of(
        key.begin(), key.end(), [](char character) { return character > 32 && character < 127; });
    if (key.empty() || key.size() > 1024 || !visible)
        throw Fault{path, "must hold one key of visible ASCII characters"};
    return key;
}

std::string apiKeyOf(const Section& section, const std::filesystem::path& folder,
                     const Print& print) {
    const auto key = section.text("apiKey");
    const auto keyFile = section.text("apiKeyFile");
    if (key && keyFile)
        throw Fault{section.pathOf("apiKeyFile"), "stands beside apiKey; keep one of the two"};
    if (key)
        return checkedKey(*key, section.pathOf("apiKey"));
    if (!keyFile)
        return {};
    const auto path = resolved(*keyFile, folder);
    const auto bytes = readFile(path, largestFile);
    if (!bytes)
        throw Fault{section.pathOf("apiKeyFile"), "names a file that cannot be read"};
    warnIfReadable(path, print);
    return checkedKey(trimmed(*bytes), section.pathOf("apiKeyFile"));
}

Provider providerFrom(const Section& section, const std::string& name,
                      const std::filesystem::path& folder, const Print& print) {
    section.allow({"baseURL", "apiKey", "apiKeyFile", "transcriptionModel", "chatModel"});
    Provider provider{name, {}, apiKeyOf(section, folder, print), {}, {}};
    if (name == "openai")
        provider.baseURL = "https://api.openai.com/v1";
    if (name == "mistral")
        provider.baseURL = "https://api.mistral.ai/v1";
    provider.baseURL = section.text("baseURL").value_or(provider.baseURL);
    const std::string where = section.pathOf("baseURL");
    if (provider.baseURL.empty())
        throw Fault{where, "is missing; name the server, such as http://127.0.0.1:8000/v1"};
    if (!isValidHttpUrl(provider.baseURL))
        throw Fault{where, "is not a URL such as https://api.example.org/v1"};
    if (provider.baseURL.find_first_of("@?#") != std::string::npos)
        throw Fault{where, "must have no user name, query or fragment"};
    if (!isSecureHttpUrl(provider.baseURL))
        throw Fault{where, "must be https; plain http is for this machine only"};
    while (provider.baseURL.ends_with('/'))
        provider.baseURL.pop_back();
    provider.transcriptionModel = section.text("transcriptionModel").value_or("");
    provider.chatModel = section.text("chatModel").value_or("");
    if (name != "local" && provider.apiKey.empty())
        throw Fault{section.pathOf("apiKey"),
                    "is missing; write the key, or name its file as apiKeyFile"};
    if (name == "local" && provider.transcriptionModel.empty() && provider.chatModel.empty())
        throw Fault{section.pathOf("transcriptionModel"),
                    "is missing, and chatModel too; name the models that this server has"};
    return provider;
}

std::vector<std::string> tokensFrom(const json& value) {
    if (!value.is_array() || value.empty())
        throw Fault{"tokens", "must be a list of SHA-256 digests"};
    std::vector<std::string> tokens;
    for (std::size_t i = 0; i < value.size(); ++i) {
        std::string digest = value[i].is_string() ? value[i].get<std::string>() : "";
        std::transform(digest.begin(), digest.end(), digest.begin(),
                       [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
        if (!isSha256(digest))
            throw Fault{"tokens[" + std::to_string(i) + "]",
                        "is not the SHA-256 of a token (64 hexadecimal digits); get it with: "
                        "printf %s TOKEN | sha256sum"};
        tokens.push_back(std::move(digest));
    }
    return tokens;
}

OfflineSettings offlineFrom(const Section& section, const std::filesystem::path& folder) {
    section.allow(
        {"model", "sha256", "language", "keepMinutes", "modelSource", "spokenPunctuation"});
    OfflineSettings offline;
    const std::string model = section.text("model").value_or("");
    const auto digest = section.text("sha256");
    if (model.find_first_of("./") == std::string::npos) {
        if (digest)
            throw Fault{"offline.sha256", "is for a model that is named by its file"};
        offline.model = model;
    } else if (digest && isSha256(*digest)) {
        offline.file = OfflineModel{resolved(model, folder), *digest};
    } else {
        throw Fault{"offline.sha256", "must be the SHA-256 of the model, as sha256sum prints it"};
    }
    offline.language = section.text("language").value_or("auto");
    if (offline.language.size() > 16 ||
        !std::all_of(offline.language.begin(), offline.language.end(),
                     [](char c) { return isAsciiAlphanumeric(c) || c == '-' || c == '_'; }))
        throw Fault{"offline.language", "must be a code such as \"fr\", or \"auto\""};
    if (offline.language == "auto")
        offline.language.clear();
    if (const json* spoken = section.find("spokenPunctuation")) {
        if (!spoken->is_boolean())
            throw Fault{"offline.spokenPunctuation", "must be true or false"};
        offline.spokenPunctuation = spoken->get<bool>();
    }
    if (const json* minutes = section.find("keepMinutes")) {
        constexpr double aWeek = 7 * 24 * 60;
        if (!minutes->is_number() || !(*minutes >= 0) || !(*minutes <= aWeek))
            throw Fault{"offline.keepMinutes", "must be a number from 0 to 10080"};
        offline.keep = std::chrono::round<std::chrono::milliseconds>(
            std::chrono::duration<double, std::ratio<60>>(minutes->get<double>()));
    }
    offline.modelSource = section.text("modelSource").value_or("");
    if (!offline.modelSource.empty() && !isSecureHttpUrl(offline.modelSource))
        throw Fault{"offline.modelSource",
                    "must be an https URL; plain http is for this machine only"};
    return offline;
}

GatewayConfig decoded(const json& document, const std::filesystem::path& folder,
                      const Print& print) {
    const Section top(document, "");
    top.allow({"address", "port", "tokens", "tls", "offline", "providers"});
    GatewayConfig config;
    config.address = top.text("address");
    if (const json* port = top.find("port")) {
        if (!port->is_number_integer() || *port < 0 || *port > 65535)
            throw Fault{"port", "must be a whole number from 0 to 65535"};
        config.port = port->get<int>();
    }
    if (const json* tokens = top.find("tokens"))
        config.tokens = tokensFrom(*tokens);
    if (const json* tls = top.find("tls")) {
        const Section section(*tls, "tls");
        section.allow({"certificate", "key"});
        for (const char* key : {"certificate", "key"})
            if (!section.find(key))
                throw Fault{section.pathOf(key), "is missing; name the PEM file"};
        config.tls = TlsFiles{resolved(*section.text("certificate"), folder),
                              resolved(*section.text("key"), folder)};
        warnIfReadable(config.tls->key, print);
    }
    if (const json* offline = top.find("offline")) {
        config.offline = offlineFrom(Section(*offline, "offline"), folder);
    }
    if (const json* providers = top.find("providers")) {
        const Section section(*providers, "providers");
        section.allow({"openai", "mistral", "local"});
        for (const char* name : {"openai", "mistral", "local"})
            if (const json* value = section.find(name))
                config.providers.push_back(
                    providerFrom(Section(*value, section.pathOf(name)), name, folder, print));
    }
    return config;
}

/// Where in `bytes` the fault of the JSON lies, for an editor's "go to line".
std::string lineOf(const std::string& bytes, std::size_t offset) {
    const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(std::min(offset, bytes.size()));
    return "line " + std::to_string(1 + std::count(bytes.begin(), end, '\n'));
}

}  // namespace

const Provider* GatewayConfig::provider(std::string_view name) const {
    const auto entry = std::find_if(providers.begin(), providers.end(),
                                    [&](const Provider& one) { return one.name == name; });
    return entry == providers.end() ? nullptr : &*entry;
}

void warnIfReadable(const std::filesystem::path& file, const Print& print) {
    struct stat facts {};
    if (stat(file.c_str(), &facts) == 0 && (facts.st_mode & (S_IRGRP | S_IROTH)) != 0)
        print("warning: others can read the keys in " + file.string() + "; chmod 600 it");
}

std::filesystem::path defaultGatewayConfigFile() {
    std::filesystem::path folder = environmentVariable("XDG_CONFIG_HOME");
    if (!folder.is_absolute()) {
        const std::string home = environmentVariable("HOME");
        folder = std::filesystem::path(home.empty() ? "/" : home) / ".config";
    }
    return folder / "nulo" / "nulo-service.json";
}

Result<GatewayConfig> readGatewayConfig(const std::filesystem::path& file, const Print& print) {
    const std::string name = file.string();
    const auto bytes = readFile(file, largestFile);
    if (!bytes)
        return Error{name + " cannot be read; it must be a regular file of at most 1 MB"};
    struct stat facts {};
    if (stat(file.c_str(), &facts) != 0 || (facts.st_mode & S_IWOTH) != 0)
        return Error{name +
                     " can be written by every user of this machine, and says where "
                     "recordings are sent; chmod 600 it"};
    try {
        // Of several values of one key the last would win, unseen.
        std::vector<std::set<std::string>> open;
        std::string doubled;
        const auto watch = [&](int, json::parse_event_t event, json& value) {
            if (event == json::parse_event_t::object_start)
                open.emplace_back();
            if (event == json::parse_event_t::object_end)
                open.pop_back();
            if (event == json::parse_event_t::key && !open.back().insert(value).second)
                doubled = "a key stands twice in one object";
            return true;
        };
        const json document = json::parse(*bytes, watch);
        if (!doubled.empty())
            return Error{name + ": " + doubled};
        GatewayConfig config = decoded(document, file.parent_path(), print);
        const bool holdsKey = std::any_of(
            config.providers.begin(), config.providers.end(), [&](const Provider& provider) {
                return document["providers"][provider.name].contains("apiKey");
            });
        if (holdsKey)
            warnIfReadable(file, print);
        return config;
    } catch (const json::parse_error& error) {
        return Error{name + " is not valid JSON (" + lineOf(*bytes, error.byte) + ")"};
    } catch (const json::out_of_range&) {
        return Error{name + " holds a number that is too large"};
    } catch (const Fault& fault) {
        return Error{name + ": " + (fault.key.empty() ? "the file" : fault.key) + " " + fault.what};
    }
}

std::vector<std::string> descriptionOf(const GatewayConfig& config) {
    std::vector<std::string> lines;
    for (const Provider& provider : config.providers) {
        const auto model = [&](const std::string& chosen, const char* vendors) {
            if (!chosen.empty())
                return chosen;
            return std::string(provider.name == "local" ? "nothing (no model named)" : vendors);
        };
        const bool mistral = provider.name == "mistral";
        lines.push_back(provider.name + ": " + provider.baseURL +
                        (provider.apiKey.empty() ? ", without a key" : ", with a key") +
                        "; transcribes with " +
                        model(provider.transcriptionModel, mistral ? "voxtral-mini-latest"
                                                                   : "the model that is asked for, "
                                                                     "or gpt-4o-mini-transcribe") +
                        "; rewrites with " +
                        model(provider.chatModel, mistral ? "the model that is asked for, or "
                                                            "mistral-small-latest"
                                                          : "the model that is asked for, or "
                                                            "gpt-5.4-mini"));
    }
    lines.push_back(std::string("offline engine: ") +
                    (config.providers.empty() ? "all recordings" : "what no provider can take"));
    return lines;
}

}  // namespace nulo::service
