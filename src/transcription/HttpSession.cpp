#include "transcription/HttpSession.h"

#include "base/Ascii.h"

namespace nulo {

std::optional<std::string_view> HttpResponseHead::header(std::string_view name) const {
    for (const auto& [key, value] : headers)
        if (equalIgnoringAsciiCase(key, name))
            return value;
    return std::nullopt;
}

}  // namespace nulo
