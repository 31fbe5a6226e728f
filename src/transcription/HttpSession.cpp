#include "transcription/HttpSession.h"

#include <algorithm>

namespace nulo {
namespace {

char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, lowerCase, lowerCase);
}

}  // namespace

std::optional<std::string_view> HttpResponseHead::header(std::string_view name) const {
    for (const auto& [key, value] : headers)
        if (equalIgnoringCase(key, name))
            return value;
    return std::nullopt;
}

}  // namespace nulo
