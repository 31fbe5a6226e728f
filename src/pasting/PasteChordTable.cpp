#include "pasting/PasteChordTable.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "base/Ascii.h"

namespace nulo {
namespace {

struct Entry {
    std::string_view name;  // lower case
    PasteChord chord;
};

// Whatever is not listed takes Ctrl+V. In a terminal Ctrl+V belongs to the program inside, and in
// an editor with keys of its own it is another command.
constexpr std::array table{
    Entry{"alacritty", PasteChord::controlShiftV},
    Entry{"blackbox", PasteChord::controlShiftV},
    Entry{"com.mitchellh.ghostty", PasteChord::controlShiftV},
    Entry{"com.raggesilver.blackbox", PasteChord::controlShiftV},
    Entry{"contour", PasteChord::controlShiftV},
    Entry{"cool-retro-term", PasteChord::controlShiftV},
    Entry{"deepin-terminal", PasteChord::controlShiftV},
    Entry{"emacs", PasteChord::shiftInsert},
    Entry{"foot", PasteChord::controlShiftV},
    Entry{"footclient", PasteChord::controlShiftV},
    Entry{"ghostty", PasteChord::controlShiftV},
    Entry{"gnome-terminal", PasteChord::controlShiftV},
    Entry{"gnome-terminal-server", PasteChord::controlShiftV},
    Entry{"guake", PasteChord::controlShiftV},
    Entry{"gvim", PasteChord::shiftInsert},
    Entry{"hyper", PasteChord::controlShiftV},
    Entry{"io.elementary.terminal", PasteChord::controlShiftV},
    Entry{"kgx", PasteChord::controlShiftV},
    Entry{"kitty", PasteChord::controlShiftV},
    Entry{"koi8rxterm", PasteChord::shiftInsert},
    Entry{"konsole", PasteChord::controlShiftV},
    Entry{"lxterminal", PasteChord::controlShiftV},
    Entry{"mate-terminal", PasteChord::controlShiftV},
    Entry{"mlterm", PasteChord::shiftInsert},
    Entry{"nvim-qt", PasteChord::shiftInsert},  // as its users map it: nothing pastes by default
    Entry{"org.gnome.console", PasteChord::controlShiftV},
    Entry{"org.gnome.ptyxis", PasteChord::controlShiftV},
    Entry{"org.gnome.terminal", PasteChord::controlShiftV},
    Entry{"org.wezfurlong.wezterm", PasteChord::controlShiftV},
    Entry{"pantheon-terminal", PasteChord::controlShiftV},
    Entry{"pterm", PasteChord::shiftInsert},
    Entry{"ptyxis", PasteChord::controlShiftV},
    Entry{"qterminal", PasteChord::controlShiftV},
    Entry{"rio", PasteChord::controlShiftV},
    Entry{"roxterm", PasteChord::controlShiftV},
    Entry{"rxvt", PasteChord::shiftInsert},
    Entry{"sakura", PasteChord::controlShiftV},
    Entry{"st", PasteChord::controlShiftV},
    Entry{"st-256color", PasteChord::controlShiftV},
    Entry{"tabby", PasteChord::controlShiftV},
    Entry{"terminator", PasteChord::controlShiftV},
    Entry{"terminology", PasteChord::controlShiftV},
    Entry{"termite", PasteChord::controlShiftV},
    Entry{"tilda", PasteChord::controlShiftV},
    Entry{"tilix", PasteChord::controlShiftV},
    Entry{"urxvt", PasteChord::shiftInsert},
    Entry{"uxterm", PasteChord::shiftInsert},
    Entry{"wezterm", PasteChord::controlShiftV},
    Entry{"xfce4-terminal", PasteChord::controlShiftV},
    Entry{"xterm", PasteChord::shiftInsert},
    Entry{"yakuake", PasteChord::controlShiftV},
};

std::optional<PasteChord> find(std::string_view name) {
    const std::string lower = asciiLower(name);
    const auto entry = std::find_if(table.begin(), table.end(),
                                    [&](const Entry& one) { return one.name == lower; });
    return entry == table.end() ? std::nullopt : std::optional(entry->chord);
}

}  // namespace

PasteChord pasteChordFor(std::string_view instance, std::string_view className) {
    if (const auto chord = find(className))
        return *chord;
    return find(instance).value_or(PasteChord::controlV);
}

}  // namespace nulo
