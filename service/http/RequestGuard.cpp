#include "service/http/RequestGuard.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "base/Text.h"
#include "service/offline/Sha256.h"

namespace nulo::service {
namespace {

/// "localhost:8737" and "[::1]:8737" without the port and the brackets.
std::string_view hostName(std::string_view hostAndPort) {
    if (!hostAndPort.empty() && hostAndPort[0] == '[')
        return hostAndPort.substr(1, std::min(hostAndPort.find(']'), hostAndPort.size()) - 1);
    return hostAndPort.substr(0, hostAndPort.find(':'));
}

}  // namespace

bool isLoopback(std::string_view host) {
    const std::string name(host);
    if (strcasecmp(name.c_str(), "localhost") == 0)
        return true;
    in_addr four{};
    if (inet_pton(AF_INET, name.c_str(), &four) == 1)
        return ntohl(four.s_addr) >> 24 == 127;
    in6_addr six{};
    return inet_pton(AF_INET6, name.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

bool equalInConstantTime(std::string_view one, std::string_view other) {
    if (one.size() != other.size())
        return false;
    unsigned char difference = 0;
    for (std::size_t i = 0; i < one.size(); ++i)
        difference |= static_cast<unsigned char>(one[i] ^ other[i]);
    const volatile unsigned char result = difference;
    return result == 0;
}

Result<std::string> readToken(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        return Error{"the token file " + file.string() + " cannot be read"};
    std::string bytes(4096, '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    std::string token = trimmed(bytes);
    const bool visible = std::all_of(token.begin(), token.end(), [](char character) {
        return character > 32 && character < 127;
    });
    if (!visible || token.size() < 16 || token.size() > 512)
        return Error{"the token file " + file.string() +
                     " must hold one token of 16 to 512 visible ASCII characters"};
    return token;
}

std::optional<Failure> RequestGuard::refusedSender(const Credentials& credentials) const {
    if (!m_tokens.empty())
        return std::nullopt;
    if (!credentials.host.empty() && !isLoopback(hostName(credentials.host)))
        return Failure{403,
                       "This service answers to names of this machine only. Ask for localhost, "
                       "or start it with a token.\n"};
    const std::string& origin = credentials.origin;
    const std::size_t scheme = origin.find("://");
    if (!origin.empty() && (scheme == std::string::npos ||
                            !isLoopback(hostName(std::string_view(origin).substr(scheme + 3)))))
        return Failure{403,
                       "Web pages may not use this service. Use a program of this machine, or "
                       "start the service with a token.\n"};
    return std::nullopt;
}

std::optional<Failure> RequestGuard::refusedToken(const Credentials& credentials) const {
    if (m_tokens.empty())
        return std::nullopt;
    constexpr std::string_view scheme = "Bearer ";
    const std::string_view given = credentials.authorization;
    if (strncasecmp(credentials.authorization.c_str(), scheme.data(), scheme.size()) == 0) {
        const std::string digest = sha256(given.substr(scheme.size()));
        bool known = false;
        for (const std::string& token : m_tokens)
            known |= equalInConstantTime(digest, token);
        if (known)
            return std::nullopt;
    }
    return Failure{401,
                   "The token is missing or wrong. Send one that the service knows as "
                   "\"Authorization: Bearer TOKEN\".\n"};
}

}  // namespace nulo::service
