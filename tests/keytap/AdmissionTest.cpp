#include "keytap/Admission.h"

#include <gtest/gtest.h>

#include <vector>

namespace nulo::keytap {
namespace {

// Somebody who sits elsewhere, or a second program of the same user, that is let in.
TEST(Admission, isForOneProgramOfEachUserOfTheSeat) {
    const SeatUsers seat{.active = 1000, .all = {1000, 1001}};
    const struct {
        uid_t user;
        std::set<uid_t> served;
        Reason reason;
    } rows[] = {
        {1000, {}, Reason::none},
        {1001, {1000}, Reason::none},
        {1000, {1000}, Reason::secondClient},
        {1002, {}, Reason::otherSession},
        {0, {}, Reason::otherSession},
    };
    for (const auto& [user, served, reason] : rows)
        EXPECT_EQ(refusal(user, seat, served), reason) << user;
    EXPECT_EQ(refusal(1000, {}, {}), Reason::otherSession);
}

std::optional<Request> parsed(const Request& request) {
    return parsedRequest(std::as_bytes(std::span(&request, 1)));
}

// A key that is typed, with Shift, AltGr or Caps Lock even, which would make the service tell when;
// one key for two modifiers; a key in the place of another; rubbish behind a request.
TEST(Requests, areTakenAsTheyAreOrNotAtAll) {
    constexpr auto chord = Request::Kind::chord, paste = Request::Kind::paste;
    constexpr ModifierKeys leftAlt = 1, altGr = 2, logos = 0xC, ctrls = 0x30, capsLock = 0x40;
    const struct {
        Request request;
        bool isTaken;
    } rows[] = {
        {{chord, KEY_SPACE, {0, leftAlt | altGr}}, true},
        {{chord, KEY_D, {ctrls, leftAlt | altGr}}, true},
        {{chord, KEY_SLASH, {ctrls | capsLock, 0, shiftKeys, logos}}, true},
        {{chord, 0, {}}, true},
        {{paste, 0, {}}, true},
        {{chord, KEY_F9, {}}, false},
        {{chord, KEY_A, {0, 0, shiftKeys}}, false},
        {{chord, KEY_F9, {0, 0, shiftKeys}}, false},
        {{chord, KEY_A, {0, leftAlt | altGr}}, false},
        {{chord, KEY_102ND, {0, altGr, shiftKeys}}, false},
        {{chord, KEY_COMMA, {capsLock}}, false},
        {{chord, KEY_LEFTALT, {ctrls}}, false},
        {{chord, KEY_ENTER, {ctrls}}, false},
        {{chord, 0, {ctrls}}, false},
        {{chord, KEY_A, {ctrls, ctrls}}, false},
        {{chord, KEY_A, {0, ctrls, 0, ctrls}}, false},
        {{chord, KEY_A, {ctrls | shiftKeys}}, false},
        {{chord, KEY_A, {ctrls, 0, leftAlt}}, false},
        {{chord, KEY_A, {ctrls | 0x200}}, false},
        {{paste, KEY_A, {}}, false},
        {{paste, 0, {0, 0, 0, logos}}, false},
        {{Request::Kind(255), KEY_A, {ctrls}}, false},
    };
    for (const auto& [request, isTaken] : rows)
        EXPECT_EQ(parsed(request).has_value(), isTaken)
            << int(request.kind) << " " << int(request.key) << " " << request.modifiers[0];
    for (const std::size_t size : {0, 1, 9, 11, 60000})
        EXPECT_FALSE(parsedRequest(std::vector(size, std::byte(0))));
    const ChordKeys keys = chordOf(rows[1].request);
    EXPECT_EQ(keys.key, KEY_D);
    EXPECT_EQ(keys.modifiers, (std::vector<std::set<KeyCode>>{{KEY_LEFTCTRL, KEY_RIGHTCTRL},
                                                              {KEY_LEFTALT, KEY_RIGHTALT}}));
}

}  // namespace
}  // namespace nulo::keytap
