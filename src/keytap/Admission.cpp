#include "keytap/Admission.h"

#include <cstring>

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
    switch (request.kind) {
        case Request::Kind::paste:
            if (request.count != 0)
                return std::nullopt;
            break;
        case Request::Kind::optionKeys:
            if (request.count == 0 || request.count > request.codes.size())
                return std::nullopt;
            break;
        default:
            return std::nullopt;
    }
    for (std::size_t i = 0; i < request.codes.size(); ++i)
        if (i < request.count ? !isPossibleOption(request.codes[i]) : request.codes[i] != 0)
            return std::nullopt;
    return request;
}

std::set<KeyCode> optionKeysOf(const Request& request) {
    return {request.codes.begin(), request.codes.begin() + request.count};
}

}  // namespace nulo::keytap
