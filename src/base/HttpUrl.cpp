#include "base/HttpUrl.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "base/Ascii.h"

namespace nulo {
namespace {

bool isAllowed(char c) {
    constexpr std::string_view forbidden = "\"<>\\^`{|}";
    return c > 0x20 && c < 0x7F && forbidden.find(c) == std::string_view::npos;
}

bool isHostName(std::string_view host) {
    return !host.empty() && std::ranges::all_of(host, [](char c) {
        return isAsciiAlphanumeric(c) || c == '-' || c == '.' || c == '_';
    });
}

/// A zone, as in "fe80::1%25eth0", may follow the address.
bool isIpv6(std::string_view host) {
    const std::size_t zone = std::min(host.find("%25"), host.size());
    const std::string_view name = host.substr(std::min(zone + 3, host.size()));
    in6_addr address{};
    return inet_pton(AF_INET6, std::string(host.substr(0, zone)).c_str(), &address) == 1 &&
           (zone == host.size() || isHostName(name));
}

std::optional<std::uint16_t> portOf(std::string_view digits) {
    std::uint16_t port = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, port);
    return error == std::errc() && stop == end ? std::optional(port) : std::nullopt;
}

}  // namespace

bool isThisMachine(std::string_view host) {
    if (host.size() > INET6_ADDRSTRLEN)
        return false;
    const std::string name = asciiLower(host);
    if (name == "localhost")
        return true;
    in_addr four{};
    // inet_aton() takes a word after a blank as well, which no host has.
    if (name.find_first_not_of("0123456789abcdefx.") == std::string::npos &&
        inet_aton(name.c_str(), &four) != 0)
        return ntohl(four.s_addr) >> 24 == 127;
    in6_addr six{};
    if (inet_pton(AF_INET6, name.c_str(), &six) != 1)
        return false;
    return IN6_IS_ADDR_LOOPBACK(&six) || (IN6_IS_ADDR_V4MAPPED(&six) && six.s6_addr[12] == 127);
}

std::optional<HttpUrl> parseHttpUrl(std::string_view text) {
    const std::size_t separator = text.find("://");
    if (separator == std::string_view::npos || !std::ranges::all_of(text, isAllowed))
        return std::nullopt;
    const std::string scheme = asciiLower(text.substr(0, separator));
    if (scheme != "http" && scheme != "https")
        return std::nullopt;

    HttpUrl url;
    url.text = text;
    url.isEncrypted = scheme == "https";
    std::string_view rest = text.substr(separator + 3);
    rest = rest.substr(0, rest.find_first_of("/?#"));
    // Of several '@', programs disagree about which one ends the user's name.
    if (const auto at = rest.find('@'); at != std::string_view::npos)
        rest.remove_prefix(at + 1);
    const bool isBracketed = rest.starts_with('[');
    const std::size_t hostEnd = isBracketed ? rest.find(']') : rest.find(':');
    const std::string_view host = rest.substr(isBracketed ? 1 : 0, hostEnd - (isBracketed ? 1 : 0));
    if (!(isBracketed && hostEnd != std::string_view::npos ? isIpv6(host) : isHostName(host)))
        return std::nullopt;
    url.host = asciiLower(host);

    const std::uint16_t ownPort = url.isEncrypted ? 443 : 80;
    std::optional<std::uint16_t> port = ownPort;
    const std::size_t portStart = isBracketed ? hostEnd + 1 : hostEnd;
    url.authority = asciiLower(rest.substr(0, portStart));
    if (portStart < rest.size())
        port = rest[portStart] == ':' ? portOf(rest.substr(portStart + 1)) : std::nullopt;
    if (!port)
        return std::nullopt;
    url.origin = scheme + "://" + url.authority + ":" + std::to_string(*port);
    if (*port != ownPort)
        url.authority += ":" + std::to_string(*port);
    return url;
}

bool isValidHttpUrl(std::string_view url) {
    return parseHttpUrl(url).has_value();
}

bool isSecureHttpUrl(std::string_view url) {
    const auto parsed = parseHttpUrl(url);
    return parsed && parsed->isSecure();
}

}  // namespace nulo
