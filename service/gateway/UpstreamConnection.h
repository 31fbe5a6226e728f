#pragma once

#include <curl/curl.h>

#include <array>
#include <memory>
#include <string_view>

#include "service/gateway/UpstreamClient.h"

namespace nulo::service {

/// libcurl's handles for one request at a time, with the connection that the last one left open.
class UpstreamConnection {
  public:
    explicit UpstreamConnection(std::string origin);
    ~UpstreamConnection();
    UpstreamConnection(const UpstreamConnection&) = delete;
    UpstreamConnection& operator=(const UpstreamConnection&) = delete;

    const std::string& origin() const { return m_origin; }
    void start(const UpstreamRequest& request, std::chrono::milliseconds connectTimeout);
    /// Waits until the head is there.
    std::optional<UpstreamFault> waitForHead(const StillWanted& stillWanted);
    Result<std::string, UpstreamFault> read(const StillWanted& stillWanted);
    /// Says that nothing more is expected: finish() then gives the end a moment to arrive.
    void expectEnd() { m_endIsNear = true; }
    /// Ends the exchange; what is left of it is not read. Tells whether the connection can be used
    /// again.
    bool finish();

    int status() const { return m_status; }
    std::string header(const char* name) const;

  private:
    using Instant = std::chrono::steady_clock::time_point;

    template <typename T>
    void set(CURLoption option, T value) {
        curl_easy_setopt(m_easy.get(), option, value);
    }
    template <typename Done>
    std::optional<UpstreamFault> runUntil(Done done, const StillWanted& stillWanted);
    void move();
    /// Whether the provider had closed the kept connection before this request could be sent to its
    /// end: the provider cannot have acted on it, and another connection is worth a try.
    bool wasClosedBefore() const;
    UpstreamFault faultOf(CURLcode code) const;
    std::size_t takeHeadLine(std::string_view line);
    std::size_t takeBody(std::string_view bytes);
    std::size_t middleSize() const;
    std::size_t giveBody(char* target, std::size_t room);

    static std::size_t onHeadLine(char* data, std::size_t, std::size_t size, void* self);
    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* self);
    static std::size_t onSend(char* target, std::size_t size, std::size_t count, void* self);
    static int onRewind(void* self, curl_off_t offset, int origin);

    const std::string m_origin;
    std::unique_ptr<CURLM, CURLMcode (*)(CURLM*)> m_multi;
    std::unique_ptr<CURL, void (*)(CURL*)> m_easy;
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> m_headers;
    std::array<char, CURL_ERROR_SIZE> m_detail{};
    UpstreamRequest m_request;
    std::size_t m_sent = 0;
    int m_status = 0;  // of a complete head
    std::string m_body;
    bool m_paused = false;
    bool m_active = false;
    std::optional<CURLcode> m_result;
    bool m_endIsNear = false;
    Instant m_start;
    Instant m_lastMove;
};

}  // namespace nulo::service
