#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

/// What nulo-keytap and its client say to each other: packets of one size each way, on a local
/// socket that keeps packets apart (SOCK_SEQPACKET). No key code ever goes to the client.
namespace nulo::keytap {

inline constexpr const char* socketPath = "/run/nulo-keytap.sock";

/// The keys that can be modifiers, as the kernel numbers them: both Alts, logo keys and Ctrls, Caps
/// Lock, both Shifts.
inline constexpr std::array<std::uint8_t, 9> modifierCodes{56, 100, 125, 126, 29, 97, 58, 42, 54};

/// Some of them: bit n stands for the n-th.
using ModifierKeys = std::uint16_t;
/// What a layout may make Ctrl, Alt and Super, and what Shift.
inline constexpr ModifierKeys commandKeys = 0b001111111, shiftKeys = 0b110000000;
/// Of commandKeys, the right Alt and Caps Lock, with which many layouts type characters.
inline constexpr ModifierKeys characterKeys = 0b001000010;

/// The other keys of a chord, first and last of each row: those that type letters, digits and signs
/// in whatever layout; Space, F1 to F24, Scroll Lock, Home, Page Up, End, Page Down, Insert, Pause,
/// Menu.
using KeyRow = std::array<std::uint8_t, 2>;
inline constexpr KeyRow typingKeyRows[] = {{2, 13}, {16, 27}, {30, 41}, {43, 53}, {86, 86}};
inline constexpr KeyRow otherKeyRows[] = {{57, 57},   {59, 68},   {70, 70},   {87, 88},
                                          {102, 102}, {104, 104}, {107, 107}, {109, 110},
                                          {119, 119}, {127, 127}, {183, 194}};

/// From the client.
struct Request {
    enum class Kind : std::uint8_t {
        chord = 1,  // watch for this one; once. Until then it is the left Alt key and Space
        paste = 2,  // press Shift+Insert; one at a time, the answer is pasted or notPasted
    };

    Kind kind = Kind::chord;
    std::uint8_t key = 0;
    /// The keys of each modifier that it has: Ctrl, Alt, Shift, Super.
    std::array<ModifierKeys, 4> modifiers{};
};
static_assert(sizeof(Request) == 10);

constexpr bool isIn(std::span<const KeyRow> rows, unsigned key) {
    return std::any_of(rows.begin(), rows.end(),
                       [key](const KeyRow& row) { return row[0] <= key && key <= row[1]; });
}

constexpr bool isChordKey(unsigned key) {
    return isIn(typingKeyRows, key) || isIn(otherKeyRows, key);
}

/// Whether the service watches for it. All zero stands for no chord at all. Otherwise it has Ctrl,
/// Alt or Super, which with a key that types are to be none of characterKeys for one of the three:
/// a client must not learn what is typed.
constexpr bool isChord(const Request& request) {
    const auto [ctrl, alt, shift, super] = request.modifiers;
    const int command = ctrl | alt | super;
    if ((command & ~commandKeys) != 0 || (shift & ~shiftKeys) != 0)
        return false;
    if (request.key == 0)
        return command == 0 && shift == 0;
    // One key must not do for two modifiers.
    if ((ctrl & alt) != 0 || ((ctrl | alt) & super) != 0)
        return false;
    const bool types = isIn(typingKeyRows, request.key);
    const auto suffices = [types](ModifierKeys keys) {
        return keys != 0 && !(types && (keys & characterKeys) != 0);
    };
    return isChordKey(request.key) && (suffices(ctrl) || suffices(alt) || suffices(super));
}

/// Why something is not done.
enum class Reason : std::uint8_t {
    none,
    otherSession,   // the user has no session at this machine's seat
    secondClient,   // another program of the user's is served
    badRequest,     // no packet of the protocol
    notActive,      // another session has the screen
    locked,         // the screen is locked, or the machine about to sleep
    noKeyboard,     // none is connected
    noUinput,       // /dev/uinput cannot be opened
    keyboardTaken,  // another program has grabbed the keyboards
    starting,       // a keyboard is being taken over, as soon as no key is down
    modifierHeld,   // the user held a modifier key for too long
};

/// To the client.
struct Notice {
    enum class Kind : std::uint8_t {
        refused = 1,  // with a reason; the connection is closed
        waiting = 2,  // with a reason; the chord cannot be seen at the moment
        serving = 3,  // the chord can be seen
        chordDown = 4,
        chordUp = 5,
        pasted = 6,
        notPasted = 7,  // with a reason
    };

    Kind kind = Kind::refused;
    Reason reason = Reason::none;
};
static_assert(sizeof(Notice) == 2);

}  // namespace nulo::keytap
