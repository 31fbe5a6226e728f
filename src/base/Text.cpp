#include "base/Text.h"

#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <cstdio>

namespace nulo {
namespace {

/// Control and formatting characters, and line ends beyond ASCII.
constexpr std::uint32_t invisible = U_GC_CC_MASK | U_GC_CF_MASK | U_GC_ZL_MASK | U_GC_ZP_MASK;

/// Unicode's picture for an ASCII control character, "<85>" and the like for others.
std::string signOf(UChar32 character) {
    char sign[16];
    if (character < 0x20)  // the pictures begin at U+2400, in UTF-8 E2 90 80
        std::snprintf(sign, sizeof sign, "\xE2\x90%c", static_cast<char>(0x80 + character));
    else
        std::snprintf(sign, sizeof sign, "<%X>", static_cast<unsigned>(character));
    return sign;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
    const auto length = static_cast<std::int64_t>(bytes.size());
    UChar32 character = 0;
    for (std::int64_t next = 0; next < length && character >= 0;)
        U8_NEXT(bytes.data(), next, length, character);
    return character >= 0;
}

std::size_t completeUtf8Length(std::string_view bytes) {
    auto length = static_cast<std::int64_t>(bytes.size());
    U8_TRUNCATE_IF_INCOMPLETE(bytes.data(), 0, length);
    return static_cast<std::size_t>(length);
}

std::size_t characterCount(std::string_view utf8) {
    UErrorCode status = U_ZERO_ERROR;
    UText* text =
        utext_openUTF8(nullptr, utf8.data(), static_cast<std::int64_t>(utf8.size()), &status);
    UBreakIterator* iterator = ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status);
    ubrk_setUText(iterator, text, &status);
    std::size_t count = 0;
    if (U_SUCCESS(status))
        while (ubrk_next(iterator) != UBRK_DONE)
            ++count;
    ubrk_close(iterator);
    utext_close(text);
    return count;
}

std::string visible(std::string_view utf8) {
    utf8 = utf8.substr(0, utf8.find_last_not_of("\r\n") + 1);
    const auto length = static_cast<std::int32_t>(utf8.size());
    std::string result;
    for (std::int32_t start = 0, next = 0; start < length; start = next) {
        UChar32 character = 0;
        U8_NEXT(utf8.data(), next, length, character);
        if (character < 0)
            result += "\uFFFD";
        else if ((U_GET_GC_MASK(character) & invisible) != 0)
            result += signOf(character);
        else
            result += utf8.substr(static_cast<std::size_t>(start),
                                  static_cast<std::size_t>(next - start));
    }
    return result;
}

std::string trimmed(std::string_view utf8) {
    const auto length = static_cast<std::int32_t>(utf8.size());
    std::int32_t start = 0;
    std::int32_t end = length;
    while (start < end) {
        std::int32_t next = start;
        UChar32 character = 0;
        U8_NEXT(utf8.data(), next, length, character);
        if (!u_isUWhiteSpace(character))
            break;
        start = next;
    }
    while (end > start) {
        std::int32_t previous = end;
        UChar32 character = 0;
        U8_PREV(utf8.data(), start, previous, character);
        if (!u_isUWhiteSpace(character))
            break;
        end = previous;
    }
    return std::string(
        utf8.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start)));
}

}  // namespace nulo
