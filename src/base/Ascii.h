#pragma once

#include <algorithm>
#include <string>
#include <string_view>

/// Letters and digits as protocols mean them, whatever the locale. Any thread.
namespace nulo {

constexpr char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string asciiLower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](char c) { return asciiLower(c); });
    return result;
}

/// Compares texts without regard to the case of ASCII letters, as header names are compared.
inline bool equalIgnoringAsciiCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, [](char x, char y) { return asciiLower(x) == asciiLower(y); });
}

constexpr bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isAsciiAlphanumeric(char c) {
    return isAsciiDigit(c) || (asciiLower(c) >= 'a' && asciiLower(c) <= 'z');
}

/// Whether the text can be the name of a header or of a method (RFC 9110, section 5.6.2).
inline bool isHttpToken(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) {
        return isAsciiAlphanumeric(c) ||
               std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
    });
}

}  // namespace nulo
