#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace nulo {

/// What is held to dictate: modifiers, of which either key counts, and one other key. In the names
/// of the key tap and its events "Option" stands for the modifiers, which are down when each of
/// them is, and "Space" for the key, whichever they are.
struct Chord {
    enum class Modifier : std::uint8_t { ctrl, alt, shift, super };
    static constexpr std::size_t modifierCount = 4;

    std::set<Modifier> modifiers{Modifier::alt};
    std::string key = "Space";
    /// XKB's name of what the key gives without modifiers, such as "space", "d" or "F9".
    std::string symbol = "space";

    bool operator==(const Chord&) const = default;
    /// As it is written by `names` of the modifiers, in the order of the enumeration, with a plus
    /// sign between the parts.
    std::string written(const std::array<std::string_view, modifierCount>& names,
                        std::string_view keyName) const;
    /// As keyboards have it: "Alt+Space".
    std::string name() const;
    /// As the program's own texts have it: the default is "Option+Space" there.
    std::string title() const;
    /// The modifiers' keys: "Alt", "Ctrl or Alt".
    std::string modifierNames() const;
};

/// "Super+Space", "ctrl + alt + d" and the like: Ctrl, Alt (or Option), Shift and Super, and a
/// letter, a digit, F1 to F24 or a key of a short list. The error names the value, in one line.
Result<Chord> parsedChord(std::string_view text);

}  // namespace nulo
