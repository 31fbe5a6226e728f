#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"
#include "service/Failure.h"
#include "service/http/Messages.h"

namespace nulo::service {

/// The token in the file: 16 to 512 visible ASCII characters, white space around them ignored.
Result<std::string> readToken(const std::filesystem::path& file);

/// Who may ask. With tokens, programs that send one of them. Without any, programs of this machine
/// that the service's own user or root runs. A web page that is open in a browser is told apart by
/// the headers that browsers add and, when it has its own name point to this machine, by the Host.
class RequestGuard {
  public:
    /// `tokens` are digests as sha256() makes them. They are compared in constant time: how long it
    /// takes does not reveal which one fits, or nearly fits.
    explicit RequestGuard(std::vector<std::string> tokens) : m_tokens(std::move(tokens)) {}

    /// Refuses a web page, and another user's program, with 403. For every request.
    std::optional<Failure> refusedSender(const RequestHead& head) const;
    /// Refuses a missing or wrong token with 401. For requests that carry speech or text.
    std::optional<Failure> refusedToken(const RequestHead& head) const;

  private:
    const std::vector<std::string> m_tokens;
};

}  // namespace nulo::service
