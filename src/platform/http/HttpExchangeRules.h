#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "transcription/HttpSession.h"

namespace nulo {

/// Without regard to the case of ASCII letters, as header names are compared.
bool sameHeaderName(std::string_view a, std::string_view b);

/// Why the request cannot be put on the wire: a method or header that would break out of its line.
/// Names the header, never its value.
std::optional<Error> faultOf(const HttpRequest& request);

/// The headers as they are to be sent: of entries with one name only the last.
HttpHeaders withoutReplacedHeaders(const HttpHeaders& headers);

/// Gathers a response head line by line, interim (1xx) heads left out.
class ResponseHeadParser {
  public:
    enum class Outcome { unfinished, finished, refused };

    /// `line` may have its line end. `status` is that of the head it belongs to. After `finished`,
    /// further lines (trailers) change nothing. `refused` when the head outgrows all reason.
    Outcome take(std::string_view line, int status);

    const HttpResponseHead& head() const { return m_head; }
    bool isFinished() const { return m_finished; }

  private:
    HttpResponseHead m_head;
    std::size_t m_size = 0;
    bool m_finished = false;
};

/// Where the head sends a client, as written there; nothing when it is no redirect.
std::optional<std::string> redirectTarget(const HttpResponseHead& head);

/// Changes the request as the redirect's status asks: 303, and a POST met by 301 or 302, go on as a
/// GET without the body and the headers that describe it.
void adaptToRedirect(HttpRequest& request, int status);

}  // namespace nulo
