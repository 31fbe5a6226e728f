#pragma once

#include <curl/curl.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/http/HttpExchangeRules.h"
#include "platform/http/SocketActivity.h"
#include "transcription/HttpSession.h"

namespace nulo {

struct CurlEasyDeleter {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct CurlListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

/// A connection that a session has opened; exchanges hold on to it beyond its end.
struct CurlConnection {
    curl_socket_t socket = CURL_SOCKET_BAD;  // CURL_SOCKET_BAD again once it is closed
    SocketActivity atEnd;                    // the activity up to the close
    bool isToOwnProgram = false;             // known to lead to this user's or root's

    SocketActivity activity() const {
        return socket == CURL_SOCKET_BAD ? atEnd : activityOf(socket);
    }
};

/// What the transfers of one session share. Session thread only, but for `stopping`.
struct CurlSessionState {
    HttpSessionDelegate& delegate;
    std::string authorities;  // file of trusted certificates, empty for the system's
    std::vector<std::shared_ptr<CurlConnection>> connections;  // the open ones
    std::atomic<bool> stopping = false;
};

/// One task: an exchange, and one more for each redirect that is followed. Session thread only.
class CurlTransfer {
  public:
    CurlTransfer(HttpTaskId task, HttpRequest request, CurlSessionState& session)
        : m_session(session), m_task(task), m_request(std::move(request)) {}

    /// Makes the handle of the next exchange, ready to be added; the error when it cannot be sent.
    Result<CURL*> prepare();

    /// Notes whether anything moved since the last look.
    void look(std::chrono::steady_clock::time_point now);
    std::chrono::steady_clock::time_point deadline() const {
        return m_lastActivity + idleTimeout();
    }
    std::chrono::milliseconds idleTimeout() const {
        return std::max(m_request.idleTimeout, std::chrono::milliseconds(1));
    }

    /// One of these two ends the exchange, once the handle is out of the multi handle. After true
    /// from endExchange() a redirect is to be followed: call prepare() again.
    bool endExchange(CURLcode result);
    void endInSilence();

    void complete(const std::optional<Error>& error);

  private:
    void setMethodAndBody();
    void setHeaders();
    void setConnection();
    HttpTransactionMetrics metrics() const;
    /// False when no more is wanted.
    bool handOver(std::string_view bytes);
    void takeHead(int status);
    bool takeHeadLine(std::string_view line);
    bool takeBody(std::string_view bytes);
    /// The connection stands and the request is about to be written to it.
    bool beginRequest(int localPort);
    /// Whether the server may have got the request, which was begun on a kept connection that then
    /// broke.
    bool mayHaveArrived() const;
    Error failure(CURLcode code) const;

    template <typename Value>
    void set(CURLoption option, Value value) {
        curl_easy_setopt(m_easy.get(), option, value);
    }

    static std::size_t onHeadLine(char* data, std::size_t, std::size_t size, void* self);
    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* self);
    static curl_socket_t onOpen(void* self, curlsocktype, curl_sockaddr* address);
    static int onClose(void* session, curl_socket_t socket);
    static int onConnected(void* self, char*, char*, int, int localPort);

    CurlSessionState& m_session;
    const HttpTaskId m_task;
    HttpRequest m_request;
    std::vector<HttpTransactionMetrics> m_metrics;
    int m_redirects = 0;
    std::string m_heldBack;  // the beginning of a character whose rest has yet to come

    // The present exchange. The list is read until the handle is gone.
    HttpUrl m_url;
    std::unique_ptr<curl_slist, CurlListDeleter> m_headers;
    std::unique_ptr<CURL, CurlEasyDeleter> m_easy;
    std::array<char, CURL_ERROR_SIZE> m_detail{};
    HttpResponseHead m_head;  // without a status until it is complete
    std::size_t m_headBytes = 0;
    bool m_isRedirect = false;
    std::optional<HttpUrl> m_next;  // where the redirect that is being read leads
    std::size_t m_redirectBody = 0;
    bool m_isEnough = false;                       // the answer was cut off, which is no failure
    std::optional<Error> m_refusal;                // why the request was not written
    std::shared_ptr<CurlConnection> m_connection;  // the last that was opened, then the carrier
    std::shared_ptr<CurlConnection> m_carrier;     // what the request is written to
    SocketActivity m_atRequest;                    // the carrier's when the request began
    SocketActivity m_activity;                     // at the last look
    std::uint64_t m_written = 0;                   // bytes of the request, at the last look
    std::uint64_t m_read = 0;                      // bytes of the answer, at the last look
    std::uint64_t m_requestAcked = 0;  // acknowledged bytes of the connection when all of it is
    std::chrono::steady_clock::time_point m_fetchStart, m_lastActivity;
    std::optional<std::chrono::steady_clock::time_point> m_requestEnd, m_responseStart;
};

}  // namespace nulo
