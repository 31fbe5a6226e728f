#include "service/http/Messages.h"

#include <strings.h>

#include <algorithm>

namespace nulo::service {

std::string RequestHead::header(std::string_view name) const {
    for (const auto& [key, value] : headers)
        if (key.size() == name.size() && strncasecmp(key.data(), name.data(), name.size()) == 0)
            return value;
    return {};
}

std::size_t RequestHead::count(std::string_view name) const {
    return static_cast<std::size_t>(std::ranges::count_if(headers, [&](const auto& header) {
        return header.first.size() == name.size() &&
               strncasecmp(header.first.data(), name.data(), name.size()) == 0;
    }));
}

Answer::Answer(const Failure& failure) : status(failure.status), body(failure.text) {
    if (failure.status == 401)
        headers.emplace_back("WWW-Authenticate", "Bearer");
    if (failure.retryAfterSeconds)
        headers.emplace_back("Retry-After", std::to_string(*failure.retryAfterSeconds));
}

}  // namespace nulo::service
