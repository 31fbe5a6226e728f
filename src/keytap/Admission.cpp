#include "keytap/Admission.h"

#include <cstring>
#include <utility>

namespace nulo::keytap {

Reason refusal(uid_t user, const SeatUsers& seat, const std::set<uid_t>& served) {
    if (!seat.all.count(user))
        return Reason::otherSession;
    return served.count(user) ? Reason::secondClient : Reason::none;
}

std::optional<Request> parsedRequest(std::span<const std::byte> packet) {
    Request request;
    if (packet.size() != sizeof request)
        return std::nullopt;
    std::memcpy(&request, packet.data(), sizeof request);
    const bool isValid = request.kind == Request::Kind::paste
                             ? request.key == 0 && request.modifiers == Request().modifiers
                             : request.kind == Request::Kind::chord && isChord(request);
    return isValid ? std::optional(request) : std::nullopt;
}

ChordKeys chordOf(const Request& request) {
    ChordKeys chord{.modifiers = {}, .key = request.key};
    for (const ModifierKeys keys : request.modifiers) {
        std::set<KeyCode> codes;
        for (std::size_t bit = 0; bit < modifierCodes.size(); ++bit)
            if ((keys >> bit & 1) != 0)
                codes.insert(modifierCodes[bit]);
        if (!codes.empty())
            chord.modifiers.push_back(std::move(codes));
    }
    return chord;
}

}  // namespace nulo::keytap
