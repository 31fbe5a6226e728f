#pragma once

#include <string>
#include <string_view>

namespace nulo::service {

/// What a client chose, fit for a terminal and for one line of a log: visible ASCII characters,
/// `most` of them at most.
inline std::string printable(std::string_view text, std::size_t most) {
    std::string result(text.substr(0, most));
    for (char& character : result)
        if (character <= 32 || character >= 127)
            character = '?';
    return result;
}

}  // namespace nulo::service
