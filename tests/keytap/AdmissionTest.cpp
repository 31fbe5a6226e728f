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

// A key that is no modifier, which would make the service tell when it is pressed; packets of
// another length; rubbish behind a request.
TEST(Requests, areTakenAsTheyAreOrNotAtAll) {
    using Bytes = std::vector<std::uint8_t>;
    const struct {
        Bytes packet;
        bool isTaken;
    } rows[] = {
        {{1, 1, KEY_LEFTALT, 0, 0, 0, 0, 0, 0}, true},
        {{1, 7, 56, 100, 125, 126, 29, 97, 58}, true},
        {{2, 0, 0, 0, 0, 0, 0, 0, 0}, true},
        {{1, 1, KEY_A, 0, 0, 0, 0, 0, 0}, false},
        {{1, 1, KEY_LEFTSHIFT, 0, 0, 0, 0, 0, 0}, false},
        {{1, 2, KEY_LEFTALT, 0, 0, 0, 0, 0, 0}, false},
        {{1, 1, KEY_LEFTALT, KEY_A, 0, 0, 0, 0, 0}, false},
        {{1, 0, 0, 0, 0, 0, 0, 0, 0}, false},
        {{1, 8, 56, 56, 56, 56, 56, 56, 56}, false},
        {{1, 255, 56, 56, 56, 56, 56, 56, 56}, false},
        {{2, 1, KEY_LEFTALT, 0, 0, 0, 0, 0, 0}, false},
        {{2, 0, 0, 0, 0, 0, 0, 0, KEY_A}, false},
        {{0, 0, 0, 0, 0, 0, 0, 0, 0}, false},
        {{255, 255, 255, 255, 255, 255, 255, 255, 255}, false},
        {{}, false},
        {{2}, false},
        {Bytes(10, 0), false},
        {Bytes(60000, 2), false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(parsedRequest(std::as_bytes(std::span(row.packet))).has_value(), row.isTaken);
    const auto request = parsedRequest(std::as_bytes(std::span(rows[1].packet)));
    EXPECT_EQ(optionKeysOf(*request).size(), 7u);
}

}  // namespace
}  // namespace nulo::keytap
