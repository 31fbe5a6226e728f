#pragma once

#include <string_view>

namespace nulo {

/// Whether a request can be sent there: an absolute http or https URL with a host, a port in range
/// if any, and only characters that a URL may hold unescaped. Pure: resolves nothing.
bool isValidHttpUrl(std::string_view url);

}  // namespace nulo
