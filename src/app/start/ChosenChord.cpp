#include "app/start/ChosenChord.h"

#include <string>

namespace nulo {

Chord chosenChord(const UserDefaults& defaults, const Print& print) {
    const auto wish = defaults.text("chord");
    if (!wish)
        return {};
    const auto chord = parsedChord(*wish);
    if (chord)
        return chord.value();
    print("defaults.ini: " + chord.error().description + "; " + Chord().title() + " it is");
    return {};
}

}  // namespace nulo
