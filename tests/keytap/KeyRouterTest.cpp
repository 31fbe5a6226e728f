#include "keytap/KeyRouter.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <utility>

#include "keytap/Admission.h"

namespace nulo::keytap {
namespace {

/// Two keyboards, one letter a key, upper case down and lower case up, '2' in front for the second
/// keyboard: O left Alt, G right Alt, C and R the Ctrls, F Shift, S Space, K and L letters, B a
/// mouse button, I Insert. What comes out is written the same way, with '+' and '-' for the chord.
class RoutedKeys {
  public:
    explicit RoutedKeys(const ChordKeys& chord = {}) {
        router.setChord(chord);
        router.add(1);
        router.add(2);
    }

    std::string after(const std::string& events) {
        out.clear();
        int keyboard = 1;
        for (const char letter : events) {
            if (letter == '2')
                keyboard = 2;
            else
                router.key(std::exchange(keyboard, 1), code(letter), std::isupper(letter) ? 1 : 0);
        }
        return out;
    }

    static KeyCode code(char letter) {
        for (const auto& [name, key] : names)
            if (name == std::toupper(letter))
                return key;
        return KEY_RESERVED;
    }

    static constexpr std::pair<char, KeyCode> names[] = {
        {'O', KEY_LEFTALT},  {'G', KEY_RIGHTALT}, {'F', KEY_LEFTSHIFT}, {'S', KEY_SPACE},
        {'K', KEY_K},        {'L', KEY_L},        {'B', BTN_LEFT},      {'I', KEY_INSERT},
        {'C', KEY_LEFTCTRL}, {'R', KEY_RIGHTCTRL}};

    std::string out;
    KeyRouter router{[this](int keyboard, KeyCode sent, bool down) {
                         if (keyboard == 2)
                             out += '2';
                         for (const auto& [name, key] : names)
                             if (key == sent)
                                 out += static_cast<char>(down ? name : std::tolower(name));
                     },
                     [this](bool down) { out += down ? '+' : '-'; }};
};

// A key of the chord that reaches a program, another one that does not, a key that stays down in
// programs, a chord that begins twice or does not end.
TEST(KeyRouter, holdsBackTheChordAndNothingElse) {
    const struct Row {
        const char *what, *in, *out;
    } rows[] = {
        {"typing, overlapping", "KLkSlsFKkf", "KLkSlsFKkf"},
        {"Option alone", "OoOo", ""},
        {"Space first let go", "OSsoK", "+-K"},
        {"Option first let go", "OSosSs", "+-Ss"},
        {"again while Option stays", "OSsSso", "+-Ss"},
        {"Option with a letter, held over", "OKkLlo", "OKkLlo"},
        {"Option with a mouse button on the same device", "OBbo", "OBbo"},
        {"Shift between", "OFKkfo", "FOKkfo"},
        {"letters during the chord", "OSKsok", "+K-k"},
        {"a letter from before", "KOSkso", "K+k-"},
        {"Space before Option", "SOso", "Ss"},
        {"AltGr is no Option", "GSsKkg", "GSsKkg"},
        {"Option and AltGr", "OGKkgo", "GOKkgo"},
        {"two keyboards, one chord", "O2S2so", "+-"},
        {"Option goes out where it is down", "O2K2ko", "O2K2ko"},
        {"Space held on one, chord on the other", "SO2Ss2so", "S+s-"},
        {"a second Option passes; the chord lasts until both are up", "O2OSo2os", "2O+2o-"},
        {"the second Option after a late first", "OK2Ok2oo", "OKko"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(RoutedKeys().after(row.in), row.out) << row.what << ": " << row.in;
    const Row rowsOfTwo[] = {
        {"one of them", "CKkcOKkoRr", "CKkcOKkoRr"},
        {"both and no more", "COcoOCoc", "CcOo"},
        {"the first one let go first", "COKcko", "C+c-"},
        {"pressed in the other order", "OCKkco", "O+-o"},
        {"a combination of both", "COLlKkoc", "COLlKkoc"},
        {"Space is a key like others", "OSsCSsco", "OSsCSsco"},
        {"either key of one", "CROKcrko", "CR+cr-"},
        {"one of them twice", "COKcCkco", "C+c-"},
        {"a combination on two keyboards", "C2OL2olc", "C2OL2olc"},
    };
    const ChordKeys ctrlAltK{{{KEY_LEFTCTRL, KEY_RIGHTCTRL}, {KEY_LEFTALT}}, KEY_K};
    for (const auto& row : rowsOfTwo)
        EXPECT_EQ(RoutedKeys(ctrlAltK).after(row.in), row.out) << row.what << ": " << row.in;
    EXPECT_EQ(RoutedKeys({{}, KEY_RESERVED}).after("OSsoCOKkoc"), "OSsoCOKkoc");
}

// Whatever a client asks for, and keys in orders that no row has: a key stays down in programs, or
// comes up twice; a chord begins twice or does not end; what is typed, with all that changes
// characters held, is a chord.
TEST(KeyRouter, keepsItsPromisesWhateverTheChord) {
    std::mt19937 random(1);
    int taken = 0;
    for (int i = 0; i < 200000; ++i) {
        Request request{.key = static_cast<std::uint8_t>(random())};
        for (auto& keys : request.modifiers)
            keys = static_cast<ModifierKeys>(random() & random() & random() & 0x3FF);
        if (!parsedRequest(std::as_bytes(std::span(&request, 1))))
            continue;
        ++taken;
        std::set<std::pair<int, KeyCode>> down, seen;
        bool isChord = false;
        KeyRouter router(
            [&](int keyboard, KeyCode code, bool press) {
                const std::pair key(keyboard, code);
                ASSERT_TRUE(press ? seen.insert(key).second : seen.erase(key) == 1);
            },
            [&](bool begins) { ASSERT_NE(std::exchange(isChord, begins), begins); });
        router.setChord(chordOf(request));
        router.add(1);
        router.add(2);
        for (const int key : {KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_RIGHTALT, KEY_CAPSLOCK})
            router.key(1, static_cast<KeyCode>(key), 1);
        router.key(1, request.key, 1);
        const bool types = request.key < KEY_F1 || request.key == KEY_102ND;
        ASSERT_FALSE(isChord && types && request.key != KEY_SPACE) << int(request.key);
        router.resync(1, {});
        for (int n = 0; n < 40; ++n) {
            const KeyCode codes[] = {request.key, KEY_Z, modifierCodes[random() % 9]};
            const std::pair key(1 + random() % 2, codes[std::min<std::size_t>(random() % 5, 2)]);
            const bool press = down.erase(key) == 0;
            if (press)
                down.insert(key);
            router.key(key.first, key.second, press);
        }
        router.remove(1);
        router.remove(2);
        ASSERT_TRUE(seen.empty() && !isChord);
    }
    EXPECT_GT(taken, 1000);
}

// Option keys of a layout of its own; a change that strands a key that is held back.
TEST(KeyRouter, changesTheChordBetweenKeys) {
    RoutedKeys keys;
    EXPECT_EQ(keys.after("O"), "");
    keys.router.setChord({.modifiers = {{KEY_RIGHTALT}}});
    EXPECT_EQ(keys.after("SsoOSso"), "+-OSso");
    EXPECT_EQ(keys.after("GSsg"), "+-");
}

// Repeats that go on twice, keys that do not exist, lost events, and a keyboard that is unplugged
// with the chord or a key down.
TEST(KeyRouter, survivesWhatKeyboardsDo) {
    RoutedKeys keys;
    keys.after("OS");
    for (int i = 0; i < 3; ++i)
        keys.router.key(1, KEY_SPACE, 2);
    keys.router.key(1, KEY_CNT, 1);
    keys.router.key(1, KEY_K, -1);
    keys.router.key(7, KEY_K, 1);
    EXPECT_EQ(keys.out, "+");
    keys.out.clear();
    KeyRouter::KeySet down;
    down.set(KEY_K).set(KEY_LEFTALT);
    keys.router.resync(1, down);  // Space went up, K down
    EXPECT_EQ(keys.out, "-K");
    EXPECT_EQ(keys.after("ko"), "k");

    keys.after("OK2K2OS");
    keys.out.clear();
    keys.router.remove(1);
    EXPECT_EQ(keys.out, "ko-");
    keys.router.remove(1);
    EXPECT_EQ(keys.after("2k2o2K2kK"), "2k2K2k");

    RoutedKeys pulled;
    pulled.after("O2S");
    pulled.router.remove(2);
    EXPECT_EQ(pulled.out, "+-");
    EXPECT_EQ(pulled.after("oOSso"), "+-");
}

// A paste that becomes another shortcut, or that tears the user's own keys apart.
TEST(KeyRouter, pastesWhenNoModifierIsSeen) {
    using Paste = KeyRouter::Paste;
    const struct {
        const char* before;
        Paste result;
        const char* out;
    } rows[] = {
        {"", Paste::sent, "FIif"},       {"2K", Paste::sent, "2F2I2i2f"},
        {"O", Paste::sent, "FIif"},  // held back: programs see none
        {"OK", Paste::modifierHeld, ""}, {"F", Paste::modifierHeld, ""},
        {"2G", Paste::modifierHeld, ""}, {"I", Paste::modifierHeld, ""},
    };
    for (const auto& row : rows) {
        RoutedKeys keys;
        keys.after(row.before);
        keys.out.clear();
        EXPECT_EQ(keys.router.paste(), row.result) << row.before;
        EXPECT_EQ(keys.out, row.out) << row.before;
    }
    RoutedKeys none;
    none.router.remove(1);
    none.router.remove(2);
    EXPECT_EQ(none.router.paste(), Paste::noKeyboard);
}

}  // namespace
}  // namespace nulo::keytap
