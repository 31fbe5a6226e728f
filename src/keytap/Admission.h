#pragma once

#include <sys/types.h>

#include <optional>
#include <set>
#include <span>

#include "keytap/Keys.h"
#include "keytap/Protocol.h"

namespace nulo::keytap {

/// Who uses the machine's seat, as logind has it.
struct SeatUsers {
    std::optional<uid_t> active;  // whose session has the screen
    std::set<uid_t> all;          // with a session there, behind the others
};

/// Whether a program of `user` may be a client beside those that are (by their users): none when it
/// may.
Reason refusal(uid_t user, const SeatUsers& seat, const std::set<uid_t>& served);

/// A packet that is no request of the protocol makes nothing.
std::optional<Request> parsedRequest(std::span<const std::byte> packet);

/// What a chord request names.
ChordKeys chordOf(const Request& request);

}  // namespace nulo::keytap
