#pragma once

#include <optional>
#include <string>

namespace nulo::service {

/// Why a request gets no answer: what the client is told.
struct Failure {
    int status = 500;  // HTTP, 400 to 599
    std::string text;  // says what to do about it
    std::optional<int> retryAfterSeconds = std::nullopt;
};

/// The status for a client that is gone and reads none.
inline constexpr int clientGone = 499;

inline Failure clientIsGone() {
    return {clientGone, "The client is gone.\n"};
}

}  // namespace nulo::service
