#include "service/Strings.h"

#include <unicode/unistr.h>

#include <algorithm>

namespace nulo::service {

std::string repairedUtf8(std::string_view bytes) {
    const icu::StringPiece piece(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    std::string repaired;
    return icu::UnicodeString::fromUTF8(piece).toUTF8String(repaired);
}

std::string printable(std::string_view text, std::size_t most) {
    std::string result(text.substr(0, most));
    std::ranges::replace_if(
        result, [](char c) { return c <= 32 || c >= 127; }, '?');
    return result;
}

}  // namespace nulo::service
