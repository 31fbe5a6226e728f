#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nulo {

/// All text in the program is UTF-8. Any thread.

/// Whether the bytes are well-formed UTF-8 (no overlong forms, no surrogates, at most U+10FFFF).
bool isValidUtf8(std::string_view bytes);

/// The number of bytes before a character that is cut off at the very end; all bytes when none is.
/// What there is of such a character is well-formed, and three bytes at most.
std::size_t completeUtf8Length(std::string_view bytes);

/// The number of user-perceived characters (extended grapheme clusters).
std::size_t characterCount(std::string_view utf8);

/// The text as one line that does nothing to a terminal: control characters, line ends and what
/// reverses the direction of writing become visible signs. Line ends at the very end are dropped.
std::string visible(std::string_view utf8);

/// The text without Unicode white space (line feeds included) at either end.
std::string trimmed(std::string_view utf8);

}  // namespace nulo
