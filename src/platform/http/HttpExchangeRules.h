#pragma once

#include <optional>
#include <string>

#include "base/HttpUrl.h"
#include "transcription/HttpSession.h"

namespace nulo {

constexpr int mostRedirects = 8;
/// The body of a redirect is of no use, but reading it to its end keeps the connection.
constexpr std::size_t longestRedirectBody = 64 * 1024;

/// Why the request cannot be put on the wire: a method or header that would break out of its line.
/// Names the header, never its value.
std::optional<Error> faultOf(const HttpRequest& request);

/// The headers that are to be sent: of several entries with one name, the last.
HttpHeaders withoutReplacedHeaders(const HttpHeaders& headers);

/// The place that a redirect sends a client to, as it is written in the head; nothing when the head
/// is no redirect's.
std::optional<std::string> redirectTarget(const HttpResponseHead& head);

/// `reference` as a document at `base` would mean it.
std::optional<HttpUrl> resolvedHttpUrl(const HttpUrl& base, const std::string& reference);

/// Changes the request as the redirect's status asks: 303, and a POST met by 301 or 302, go on as a
/// GET without the body and the headers that describe it.
void adaptToRedirect(HttpRequest& request, int status);

}  // namespace nulo
