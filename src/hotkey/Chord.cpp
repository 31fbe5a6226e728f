#include "hotkey/Chord.h"

#include <algorithm>
#include <optional>

#include "base/Ascii.h"
#include "base/Text.h"

namespace nulo {
namespace {

using Modifier = Chord::Modifier;

constexpr std::array<std::string_view, Chord::modifierCount> modifierNames{"Ctrl", "Alt", "Shift",
                                                                           "Super"};
constexpr std::size_t longestValue = 64;  // bytes

struct Key {
    std::string name;
    std::string symbol;
    bool isPrintable = false;
};

const Key namedKeys[] = {
    {"Space", "space", true}, {"Pause", "Pause"}, {"Insert", "Insert"},
    {"Home", "Home"},         {"End", "End"},     {"PageUp", "Prior"},
    {"PageDown", "Next"},     {"Menu", "Menu"},   {"ScrollLock", "Scroll_Lock"}};

std::optional<Modifier> modifierOf(std::string_view part) {
    if (equalIgnoringAsciiCase(part, "Option"))
        return Modifier::alt;
    for (std::size_t i = 0; i < modifierNames.size(); ++i)
        if (equalIgnoringAsciiCase(part, modifierNames[i]))
            return static_cast<Modifier>(i);
    return std::nullopt;
}

std::optional<Key> keyOf(std::string_view part) {
    const std::string lower = asciiLower(part);
    if (part.size() == 1 && isAsciiAlphanumeric(part.front())) {
        const char c = lower.front();
        return Key{std::string(1, isAsciiDigit(c) ? c : static_cast<char>(c - 'a' + 'A')), lower,
                   true};
    }
    for (int i = 1; i <= 24; ++i)
        if (const std::string name = "F" + std::to_string(i); equalIgnoringAsciiCase(part, name))
            return Key{name, name};
    const auto found = std::ranges::find_if(
        namedKeys, [&](const Key& key) { return equalIgnoringAsciiCase(part, key.name); });
    return found == std::end(namedKeys) ? std::nullopt : std::optional(*found);
}

/// Why the chord can not be used; nothing when it can.
std::string objection(const Chord& chord, bool isPrintable) {
    if (chord.modifiers.empty())
        return "it has no modifier (Ctrl, Alt, Shift or Super)";
    if (chord.key.empty())
        return "it has no key besides modifiers";
    if (isPrintable && chord.modifiers == std::set{Modifier::shift})
        return "Shift and that key are for typing";
    const std::string name = chord.name();
    if (name == "Ctrl+V" || name == "Ctrl+Shift+V" || name == "Shift+Insert")
        return "the text is pasted by it";
    return {};
}

}  // namespace

std::string Chord::written(const std::array<std::string_view, modifierCount>& names,
                           std::string_view keyName) const {
    std::string text;
    for (const Modifier modifier : modifiers)
        text += std::string(names[static_cast<std::size_t>(modifier)]) + "+";
    return text.append(keyName);
}

std::string Chord::name() const {
    return written(nulo::modifierNames, key);
}

std::string Chord::title() const {
    return *this == Chord() ? "Option+Space" : name();
}

std::string Chord::modifierNames() const {
    std::string text;
    for (const Modifier modifier : modifiers)
        text.append(text.empty() ? "" : " or ")
            .append(nulo::modifierNames[static_cast<std::size_t>(modifier)]);
    return text;
}

Result<Chord> parsedChord(std::string_view text) {
    const auto refused = [&](const std::string& reason) {
        const std::string_view shown = text.substr(0, longestValue);
        return Error{"the shortcut \"" + visible(shown.substr(0, completeUtf8Length(shown))) +
                     (shown.size() < text.size() ? "…" : "") + "\" is refused: " + reason};
    };
    if (text.size() > longestValue)
        return refused("it is too long");
    Chord chord{.modifiers = {}, .key = "", .symbol = ""};
    bool isPrintable = false;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('+', begin), text.size());
        const std::string part = trimmed(text.substr(begin, end - begin));
        begin = end + 1;
        if (const auto modifier = modifierOf(part)) {
            if (!chord.modifiers.insert(*modifier).second)
                return refused("it has the same modifier twice");
            continue;
        }
        const auto key = keyOf(part);
        if (!key)
            return refused(part.empty() ? "a key's name is missing"
                                        : "\"" + visible(part) + "\" is no key that it can have");
        if (!chord.key.empty())
            return refused("it has two keys besides modifiers");
        chord.key = key->name;
        chord.symbol = key->symbol;
        isPrintable = key->isPrintable;
    }
    if (const std::string reason = objection(chord, isPrintable); !reason.empty())
        return refused(reason);
    return chord;
}

}  // namespace nulo
