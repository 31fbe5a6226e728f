#include "service/http/Messages.h"

#include <algorithm>

#include "base/Ascii.h"

namespace nulo::service {
namespace {

bool isControl(unsigned char c) {
    return (c < 32 && c != '\t') || c == 127;
}

}  // namespace

std::string RequestHead::header(std::string_view name) const {
    for (const auto& [key, value] : headers)
        if (equalIgnoringAsciiCase(key, name))
            return value;
    return {};
}

std::size_t RequestHead::count(std::string_view name) const {
    return static_cast<std::size_t>(std::ranges::count_if(
        headers, [&](const auto& header) { return equalIgnoringAsciiCase(header.first, name); }));
}

bool RequestHead::isSound() const {
    for (const auto& [name, value] : headers)
        if (!isHttpToken(name) || std::ranges::any_of(value, isControl))
            return false;
    return count("Host") <= 1 && count("Content-Length") <= 1;
}

Answer::Answer(const Failure& failure) : status(failure.status), body(failure.text) {
    if (failure.status == 401)
        headers.emplace_back("WWW-Authenticate", "Bearer");
    if (failure.retryAfterSeconds)
        headers.emplace_back("Retry-After", std::to_string(*failure.retryAfterSeconds));
}

}  // namespace nulo::service
