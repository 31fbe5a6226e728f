#pragma once

#include <optional>
#include <string>

namespace nulo {

/// A well-formed absolute URL of the http or https scheme.
struct HttpUrl {
    std::string text;
    std::string origin;     // "https://host:443": lower case, the port always given
    std::string host;       // without the brackets of an IPv6 address
    std::string authority;  // for a person: the host, and the port unless it is the scheme's own

    /// This machine by its name or its number; such a connection never goes through a proxy.
    bool isLoopback() const;
};

/// Nothing for another scheme, a relative reference, white space or a control character.
std::optional<HttpUrl> parseHttpUrl(const std::string& text);

/// `reference` as a document at `base` would mean it.
std::optional<HttpUrl> resolveHttpUrl(const HttpUrl& base, const std::string& reference);

}  // namespace nulo
