#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"
#include "service/Failure.h"

namespace nulo::service {

/// An address of this machine that no other can reach, as an IP address or "localhost".
bool isLoopback(std::string_view host);

/// Same bytes; takes equally long wherever two texts of one length differ.
bool equalInConstantTime(std::string_view one, std::string_view other);

/// The token in the file: 16 to 512 visible ASCII characters, white space around them ignored.
Result<std::string> readToken(const std::filesystem::path& file);

/// Who may ask. With a token, whoever sends it. Without one, programs of this machine: a web page
/// that is open in a browser here is told apart by the Origin it comes from and, when it has its
/// own name point to this machine, by the Host it asks for.
class RequestGuard {
  public:
    struct Credentials {  // header values, empty when absent
        std::string host;
        std::string origin;
        std::string authorization;
    };

    explicit RequestGuard(std::optional<std::string> token) : m_token(std::move(token)) {}

    /// 403 for a web page. Asked of every request.
    std::optional<Failure> refusedSender(const Credentials& credentials) const;
    /// 401. Asked of requests that carry speech or text.
    std::optional<Failure> refusedToken(const Credentials& credentials) const;

  private:
    const std::optional<std::string> m_token;
};

}  // namespace nulo::service
