#pragma once

#include <string_view>

namespace nulo {

/// Whether a request can be sent there: an absolute http or https URL with a host, a port in range
/// if any, and only characters that a URL may hold unescaped. Pure: resolves nothing.
bool isValidHttpUrl(std::string_view url);

/// Whether what is fetched from that valid URL cannot be read or changed on the way: https, or http
/// from this machine (localhost, 127.x.x.x, [::1]).
bool isSecureHttpUrl(std::string_view url);

}  // namespace nulo
