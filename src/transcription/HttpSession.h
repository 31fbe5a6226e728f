#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Result.h"

namespace nulo {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
    std::string method;   // "GET", "HEAD", "POST"
    std::string url;      // absolute, http or https
    HttpHeaders headers;  // sent in this order; a later entry replaces an earlier one of its name
    std::string body;
    /// The longest allowed silence, connecting included; no limit on the whole exchange.
    std::chrono::milliseconds idleTimeout = std::chrono::seconds(60);
    std::string peer = "the speech service";  // what error texts call the far end
};

struct HttpResponseHead {
    int status = 0;
    HttpHeaders headers;

    /// The first header of that name, compared without regard to case.
    std::optional<std::string_view> header(std::string_view name) const;
};

/// The times at which each step of one exchange began and ended; absent for a step that did not
/// happen or is unknown.
struct HttpTransactionMetrics {
    using Instant = std::optional<std::chrono::steady_clock::time_point>;

    bool reusedConnection = false;
    std::optional<std::string> protocolName;  // "http/1.1", "h2"
    Instant fetchStart, responseEnd;
    Instant domainLookupStart, domainLookupEnd;
    Instant connectStart, connectEnd;
    Instant secureConnectionStart, secureConnectionEnd;
    Instant requestStart, requestEnd;
    Instant responseStart;
};

using HttpTaskId = std::uint64_t;

/// What a session reports. All calls come on the session's one thread; for one task in this order:
/// response at most once, data any number of times, metrics once, completion exactly once.
class HttpSessionDelegate {
  public:
    virtual ~HttpSessionDelegate() = default;
    virtual void didReceiveResponse(HttpTaskId task, const HttpResponseHead& head) = 0;
    /// Never empty; ends at a character boundary of UTF-8 unless the body itself does not. Tells
    /// whether more is wanted: after false the task completes without an error, and without more.
    virtual bool didReceiveData(HttpTaskId task, std::string_view bytes) = 0;
    /// `transactions` has one entry for each exchange: several after redirects, none when no
    /// exchange was begun.
    virtual void didCollectMetrics(HttpTaskId task,
                                   const std::vector<HttpTransactionMetrics>& transactions) = 0;
    /// `error` is a transport failure; an HTTP error status is not one.
    virtual void didComplete(HttpTaskId task, const std::optional<Error>& error) = 0;
};

/// Keeps connections open from request to request. Redirects are followed within the request's
/// origin only; elsewhere the redirect itself is the response, its body cut off at 64 kB.
/// Certificates are verified; over plain http to this machine it is verified that a program of this
/// user's or root's answers. A POST that may have arrived is never sent again. Destroying a session
/// cancels what is in flight, without further delegate calls, and joins.
class HttpSession {
  public:
    virtual ~HttpSession() = default;
    /// Reserves an identifier, so that a delegate can be told of the task before it starts.
    virtual HttpTaskId createTask(HttpRequest request) = 0;
    /// Starts a created task. Never waits. Any thread.
    virtual void resume(HttpTaskId task) = 0;
};

}  // namespace nulo
