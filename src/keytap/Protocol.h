#pragma once

#include <array>
#include <cstdint>

/// What nulo-keytap and its client say to each other: packets of one size each way, on a local
/// socket that keeps packets apart (SOCK_SEQPACKET). No key code ever goes to the client.
namespace nulo::keytap {

inline constexpr const char* socketPath = "/run/nulo-keytap.sock";

/// The keys that a layout may make an Alt key, as the kernel numbers them: both Alts, logo keys and
/// Ctrls, and Caps Lock. A client that could name any key would learn when that key is pressed.
inline constexpr std::array<std::uint8_t, 7> possibleOptionCodes{56, 100, 125, 126, 29, 97, 58};

/// From the client.
struct Request {
    enum class Kind : std::uint8_t {
        optionKeys = 1,  // the keys that are Option in the session's layout: `count` of `codes`
        paste = 2,       // press Shift+Insert; one at a time, the answer is pasted or notPasted
    };

    Kind kind = Kind::optionKeys;
    std::uint8_t count = 0;
    std::array<std::uint8_t, 7> codes{};  // of possibleOptionCodes; zero behind `count`
};
static_assert(sizeof(Request) == 9);

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
