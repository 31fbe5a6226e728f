#include "base/HttpUrl.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <regex>
#include <string>

namespace nulo {
namespace {

bool isAllowed(char c) {
    constexpr std::string_view forbidden = "\"<>\\^`{|}";
    return c > 0x20 && c < 0x7F && forbidden.find(c) == std::string_view::npos;
}

bool isPort(std::string_view text) {
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size();
}

/// Cuts `scheme` and "://" off; the scheme is compared without regard to case.
bool removeScheme(std::string_view& url, std::string_view scheme) {
    const auto sameLetter = [](char a, char b) { return (a | 0x20) == b; };
    if (!std::ranges::equal(url.substr(0, scheme.size()), scheme, sameLetter) ||
        !url.substr(scheme.size()).starts_with("://"))
        return false;
    url.remove_prefix(scheme.size() + 3);
    return true;
}

/// Of a URL without its scheme.
std::string_view hostAndPort(std::string_view url) {
    std::string_view host = url.substr(0, url.find_first_of("/?#"));
    if (const auto at = host.rfind('@'); at != std::string_view::npos)
        host.remove_prefix(at + 1);
    return host;
}

std::size_t portSeparator(std::string_view hostAndPort) {
    // The colons of an IPv6 address stand inside its brackets.
    const auto bracket = hostAndPort.rfind(']');
    return hostAndPort.find(':', bracket == std::string_view::npos ? 0 : bracket);
}

bool isLoopback(const std::string& host) {
    static const std::regex loopback(R"(localhost|127\.\d{1,3}\.\d{1,3}\.\d{1,3}|\[::1\])",
                                     std::regex::icase);
    return std::regex_match(host, loopback);
}

}  // namespace

bool isValidHttpUrl(std::string_view url) {
    if (!std::ranges::all_of(url, isAllowed))
        return false;
    if (!removeScheme(url, "http") && !removeScheme(url, "https"))
        return false;
    std::string_view host = hostAndPort(url);
    const auto colon = portSeparator(host);
    if (colon != std::string_view::npos && !isPort(host.substr(colon + 1)))
        return false;
    host = host.substr(0, colon);
    if (host.starts_with('['))
        return host.ends_with(']') && host.size() > 2;
    return !host.empty() && host.find_first_of("[]") == std::string_view::npos;
}

bool isSecureHttpUrl(std::string_view url) {
    if (!isValidHttpUrl(url))
        return false;
    if (!removeScheme(url, "http"))
        return true;
    const std::string_view host = hostAndPort(url);
    return isLoopback(std::string(host.substr(0, portSeparator(host))));
}

}  // namespace nulo
