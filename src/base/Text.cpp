#include "base/Text.h"

#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace nulo {
namespace {

/// Length of the sequence that a lead byte opens; 0 for a byte that opens none.
std::size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

/// Whether `tail` (a lead byte and what follows it) can still become a well-formed sequence.
/// The second byte's range depends on the lead (Unicode Standard, table 3-7).
bool mayBecomeCharacter(std::string_view tail) {
    const auto lead = static_cast<unsigned char>(tail[0]);
    for (std::size_t i = 1; i < tail.size(); ++i) {
        const auto byte = static_cast<unsigned char>(tail[i]);
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (i == 1) {
            if (lead == 0xE0)
                low = 0xA0;
            if (lead == 0xED)
                high = 0x9F;
            if (lead == 0xF0)
                low = 0x90;
            if (lead == 0xF4)
                high = 0x8F;
        }
        if (byte < low || byte > high)
            return false;
    }
    return true;
}

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
    for (std::size_t i = 0; i < bytes.size();) {
        const std::size_t length = sequenceLength(static_cast<unsigned char>(bytes[i]));
        if (length == 0 || length > bytes.size() - i ||
            !mayBecomeCharacter(bytes.substr(i, length)))
            return false;
        i += length;
    }
    return true;
}

std::size_t completeUtf8Length(std::string_view bytes) {
    const std::size_t most = std::min<std::size_t>(3, bytes.size());
    for (std::size_t back = 1; back <= most; ++back) {
        const std::size_t start = bytes.size() - back;
        const auto byte = static_cast<unsigned char>(bytes[start]);
        if ((byte & 0xC0) == 0x80)
            continue;
        const bool incomplete =
            sequenceLength(byte) > back && mayBecomeCharacter(bytes.substr(start));
        return incomplete ? start : bytes.size();
    }
    return bytes.size();
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
