#include "service/gateway/UpstreamFailure.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/Text.h"

namespace nulo::service {
namespace {

using nlohmann::json;

constexpr std::size_t longestMessage = 300;

std::string textOf(const json& value, const char* name) {
    const auto found = value.is_object() ? value.find(name) : value.end();
    return found != value.end() && found->is_string() ? found->get<std::string>() : "";
}

/// The object that describes the error: vendors put it at the top or under "error".
json errorIn(const std::string& body) {
    const json answer = json::parse(body, nullptr, false);
    if (answer.is_object() && answer.contains("error") && answer["error"].is_object())
        return answer["error"];
    return answer;
}

/// One line in the provider's words, with the key blotted out; empty when there are none.
std::string wordsOf(const json& error, const Provider& provider) {
    std::string words = textOf(error, "message");
    if (words.empty())
        words = textOf(error, "error");
    if (words.empty())
        words = textOf(error, "detail");
    for (std::size_t at = 0;
         !provider.apiKey.empty() && (at = words.find(provider.apiKey, at)) != std::string::npos;)
        words.replace(at, provider.apiKey.size(), "…");
    std::replace_if(
        words.begin(), words.end(), [](unsigned char c) { return c < 32 || c == 127; }, ' ');
    if (words.size() > longestMessage) {
        words.resize(completeUtf8Length(std::string_view(words).substr(0, longestMessage)));
        words += "…";
    }
    while (words.ends_with('.') || words.ends_with(' '))
        words.pop_back();
    return words;
}

std::string keyOf(const Provider& provider, const char* key) {
    return "providers." + provider.name + "." + key + " in nulo-service.json";
}

}  // namespace

bool isQuotaError(const std::string& body) {
    return body.find("insufficient_quota") != std::string::npos;
}

Failure unusableAnswer(const Provider& provider, const std::string& what) {
    return {502, provider.name + " answered with " + what + ". Check " +
                     keyOf(provider, "baseURL") + ", now " + provider.baseURL + ".\n"};
}

Failure failureOf(const UpstreamFault& fault, const Provider& provider) {
    switch (fault.kind) {
        case UpstreamFault::Kind::notWanted:
            return clientIsGone();
        case UpstreamFault::Kind::unreachable:
            return {502, provider.name + " cannot be reached at " + provider.baseURL + " (" +
                             fault.detail + "). Check the network and " +
                             keyOf(provider, "baseURL") + ".\n"};
        case UpstreamFault::Kind::silent:
            return {504, provider.name +
                             " did not answer in time. Try again, or choose another "
                             "provider.\n"};
        case UpstreamFault::Kind::brokenOff:
            break;
    }
    return {502, provider.name + " gave no complete answer: " + fault.detail + ". Try again.\n"};
}

Failure failureOf(int status, const std::string& body, std::optional<int> retryAfterSeconds,
                  const Provider& provider, const std::string& model) {
    const json error = errorIn(body);
    const std::string words = wordsOf(error, provider);
    const std::string code = textOf(error, "code") + " " + textOf(error, "type");
    const std::string quoted = words.empty() ? "" : " It says: " + words + ".";
    const std::string& name = provider.name;
    const bool isAboutModel = code.find("model") != std::string::npos ||
                              words.find("model") != std::string::npos ||
                              words.find("Model") != std::string::npos;
    if (status == 401 || status == 403)  // its words often hold a part of the key
        return {502, name + " refused the API key (status " + std::to_string(status) +
                         "). Correct " + keyOf(provider, "apiKey") +
                         " and start the service again.\n"};
    if (status == 404 && !isAboutModel)
        return unusableAnswer(provider, "\"not found\"");
    if (status == 404 || (status == 400 && code.find("invalid_model") != std::string::npos))
        return {502, name + " does not know the model " + model + ". Name another in " +
                         keyOf(provider, "transcriptionModel or chatModel") + "." + quoted + "\n"};
    if (status == 429 && isQuotaError(body))
        return {429, "The quota of the account at " + name +
                         " is used up. Look at its plan and its billing there." + quoted + "\n"};
    if (status == 402)
        return {402, "The account at " + name + " has to be paid for." + quoted + "\n"};
    if (status == 429)
        return {429,
                name + " takes no more requests at the moment. Try again in " +
                    (retryAfterSeconds ? std::to_string(*retryAfterSeconds) + " seconds."
                                       : "a minute.") +
                    quoted + "\n",
                retryAfterSeconds};
    if (status == 413)
        return {413, "The recording is too large for " + name + ". Send a shorter one.\n"};
    if (status >= 500)
        return {status == 503 ? 503 : 502,
                name + " fails at the moment (status " + std::to_string(status) +
                    "). Try again in a minute." + quoted + "\n",
                retryAfterSeconds};
    if (status >= 400)
        return {400, name + " refused the request (status " + std::to_string(status) + ")." +
                         (words.empty() ? " Check the models in nulo-service.json." : quoted) +
                         "\n"};
    return unusableAnswer(provider, "status " + std::to_string(status));
}

}  // namespace nulo::service
