#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace nulo {

/// Whether that host, an IPv6 address without its brackets, is this machine by definition: the name
/// "localhost", an address of 127.0.0.0/8 in any spelling, or ::1. Resolves nothing.
bool isThisMachine(std::string_view host);

/// A well-formed absolute URL of the http or https scheme. All parts are printable ASCII.
struct HttpUrl {
    std::string text;
    std::string origin;     // "https://host:443": lower case, the port always given
    std::string authority;  // for a person: the host, and the port unless it is the scheme's own
    std::string host;       // lower case, without the brackets of an IPv6 address
    bool isEncrypted = false;

    /// Whether what goes there cannot be read or changed on the way: https, or http to this
    /// machine.
    bool isSecure() const { return isEncrypted || isThisMachine(host); }
};

/// Reads a URL; resolves nothing. Refuses another scheme, a relative reference, a port out of
/// range, and characters that a URL may hold escaped only.
std::optional<HttpUrl> parseHttpUrl(std::string_view text);

/// Whether parseHttpUrl() takes the text.
bool isValidHttpUrl(std::string_view url);
/// Whether parseHttpUrl() takes the text, and the URL isSecure().
bool isSecureHttpUrl(std::string_view url);

}  // namespace nulo
