#include "service/http/RequestGuard.h"

#include <openssl/crypto.h>
#include <strings.h>

#include <algorithm>

#include "base/FileIO.h"
#include "base/HttpUrl.h"
#include "base/Text.h"
#include "service/Sha256.h"

namespace nulo::service {
namespace {

/// "localhost:8737" and "[::1]:8737" without the port and the brackets.
std::string_view hostName(std::string_view hostAndPort) {
    if (!hostAndPort.empty() && hostAndPort[0] == '[')
        return hostAndPort.substr(1, std::min(hostAndPort.find(']'), hostAndPort.size()) - 1);
    return hostAndPort.substr(0, hostAndPort.find(':'));
}

}  // namespace

Result<std::string> readToken(const std::filesystem::path& file) {
    const auto bytes = readFile(file, 4096);
    if (!bytes)
        return Error{"the token file " + file.string() +
                     " cannot be read: it must be a regular file of a few bytes"};
    std::string token = trimmed(*bytes);
    const bool visible = std::all_of(token.begin(), token.end(), [](char character) {
        return character > 32 && character < 127;
    });
    if (!visible || token.size() < 16 || token.size() > 512)
        return Error{"the token file " + file.string() +
                     " must hold one token of 16 to 512 visible ASCII characters"};
    return token;
}

std::optional<Failure> RequestGuard::refusedSender(const RequestHead& head) const {
    // Browsers alone send these, and a page cannot keep them from it.
    const std::string site = head.header("Sec-Fetch-Site");
    if (head.count("Origin") > 0 || (!site.empty() && site != "none" && site != "same-origin"))
        return Failure{403, "Web pages may not use this service. Use a program.\n"};
    if (!m_tokens.empty())
        return std::nullopt;
    const std::string host = head.header("Host");
    if (!host.empty() && !isThisMachine(hostName(host)))
        return Failure{403,
                       "This service answers to names of this machine only. Ask for localhost, "
                       "or start it with a token.\n"};
    if (!head.isFromOwnUser)
        return Failure{403,
                       "This service serves programs of the user who runs it. Run one of your own, "
                       "or start it with a token.\n"};
    return std::nullopt;
}

std::optional<Failure> RequestGuard::refusedToken(const RequestHead& head) const {
    if (m_tokens.empty())
        return std::nullopt;
    constexpr std::string_view scheme = "Bearer ";
    const std::string authorization = head.header("Authorization");
    const std::string_view given = authorization;
    if (strncasecmp(authorization.c_str(), scheme.data(), scheme.size()) == 0) {
        const std::string digest = sha256(given.substr(scheme.size()));
        bool known = false;
        for (const std::string& token : m_tokens)
            known |= digest.size() == token.size() &&
                     CRYPTO_memcmp(digest.data(), token.data(), token.size()) == 0;
        if (known)
            return std::nullopt;
    }
    return Failure{401,
                   "The token is missing or wrong. Send one that the service knows as "
                   "\"Authorization: Bearer TOKEN\".\n"};
}

}  // namespace nulo::service
