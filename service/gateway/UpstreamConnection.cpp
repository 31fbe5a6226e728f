#include "service/gateway/UpstreamConnection.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "base/HttpUrl.h"

namespace nulo::service {
namespace {

using std::chrono::steady_clock;

/// Bounds the bytes that are read before the caller takes them.
constexpr std::size_t mostReadAhead = 64 * 1024;
/// The time within which a client that has gone is noticed.
constexpr int lookEveryMilliseconds = 200;
constexpr long secondsConnectionsAreKept = 300;
/// Bounds an exchange however steadily its answer trickles.
constexpr auto longestExchange = std::chrono::minutes(10);
constexpr auto longestWaitForTheEnd = std::chrono::milliseconds(100);

bool namesThisMachine(const std::string& text) {
    const auto url = parseHttpUrl(text);
    return url && isThisMachine(url->host);
}

}  // namespace

UpstreamConnection::UpstreamConnection(std::string origin)
    : m_origin(std::move(origin)),
      m_multi(curl_multi_init(), curl_multi_cleanup),
      m_easy(curl_easy_init(), curl_easy_cleanup),
      m_headers(nullptr, curl_slist_free_all) {
    if (!m_multi || !m_easy)
        throw std::bad_alloc();
    curl_multi_setopt(m_multi.get(), CURLMOPT_MAXCONNECTS, 1L);
}

UpstreamConnection::~UpstreamConnection() {
    finish();
}

void UpstreamConnection::start(const UpstreamRequest& request,
                               std::chrono::milliseconds connectTimeout) {
    m_request = request;
    m_sent = 0;
    m_status = 0;
    m_body.clear();
    m_paused = false;
    m_result.reset();
    m_detail.front() = '\0';
    curl_easy_reset(m_easy.get());
    m_headers.reset();
    const auto append = [this](const std::string& line) {
        curl_slist* longer = curl_slist_append(m_headers.get(), line.c_str());
        if (!longer)
            throw std::bad_alloc();
        (void)m_headers.release();
        m_headers.reset(longer);
    };
    if (!m_request.bearer.empty())
        append("Authorization: Bearer " + m_request.bearer);
    append("Content-Type: " + m_request.contentType);
    append("Expect:");  // libcurl's own would delay every upload by a turn

    const auto size = m_request.before.size() + middleSize() + m_request.after.size();
    set(CURLOPT_URL, m_request.url.c_str());
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    set(CURLOPT_HTTPHEADER, m_headers.get());
    set(CURLOPT_READFUNCTION, &UpstreamConnection::onSend);
    set(CURLOPT_READDATA, this);
    set(CURLOPT_SEEKFUNCTION, &UpstreamConnection::onRewind);
    set(CURLOPT_SEEKDATA, this);
    set(CURLOPT_HEADERFUNCTION, &UpstreamConnection::onHeadLine);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &UpstreamConnection::onBody);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_ERRORBUFFER, m_detail.data());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    set(CURLOPT_MAXAGE_CONN, secondsConnectionsAreKept);
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connectTimeout.count()));
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    set(CURLOPT_USERAGENT, "nulo-service");
    if (namesThisMachine(m_request.url))
        set(CURLOPT_PROXY, "");
    m_start = m_lastMove = steady_clock::now();
    m_endIsNear = false;
    curl_multi_add_handle(m_multi.get(), m_easy.get());
    m_active = true;
}

std::optional<UpstreamFault> UpstreamConnection::waitForHead(const StillWanted& stillWanted) {
    const auto isDecided = [this] { return m_status != 0 || m_result; };
    if (auto fault = runUntil(isDecided, stillWanted))
        return fault;
    if (m_status == 0 && wasClosedBefore()) {
        curl_multi_remove_handle(m_multi.get(), m_easy.get());
        m_sent = 0;
        m_result.reset();
        set(CURLOPT_FRESH_CONNECT, 1L);
        curl_multi_add_handle(m_multi.get(), m_easy.get());
        if (auto fault = runUntil(isDecided, stillWanted))
            return fault;
    }
    return m_status == 0 ? std::optional(faultOf(*m_result)) : std::nullopt;
}

Result<std::string, UpstreamFault> UpstreamConnection::read(const StillWanted& stillWanted) {
    m_lastMove = steady_clock::now();  // the time that the reader took is not the provider's
    if (m_body.empty() && m_paused) {
        m_paused = false;
        curl_easy_pause(m_easy.get(), CURLPAUSE_CONT);
    }
    if (auto fault = runUntil([this] { return !m_body.empty() || m_result; }, stillWanted))
        return *fault;
    if (m_body.empty() && m_result != CURLE_OK)
        return faultOf(*m_result);
    return std::exchange(m_body, {});
}

template <typename Done>
std::optional<UpstreamFault> UpstreamConnection::runUntil(Done done,
                                                          const StillWanted& stillWanted) {
    using Kind = UpstreamFault::Kind;
    for (;;) {
        if (!stillWanted())
            return UpstreamFault{Kind::notWanted, "the client is gone"};
        if (done())
            return std::nullopt;
        move();
        if (done())
            return std::nullopt;
        const auto now = steady_clock::now();
        if (now - m_lastMove > m_request.silence || now - m_start > longestExchange)
            return UpstreamFault{Kind::silent, "it did not answer in time"};
        const auto wait = std::min<long long>(lookEveryMilliseconds, m_request.silence.count() + 1);
        curl_multi_poll(m_multi.get(), nullptr, 0, static_cast<int>(wait), nullptr);
    }
}

void UpstreamConnection::move() {
    int running = 0;
    curl_multi_perform(m_multi.get(), &running);
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(m_multi.get(), &left))
        if (message->msg == CURLMSG_DONE)
            m_result = message->data.result;
}

bool UpstreamConnection::finish() {
    if (!m_active)
        return true;
    const auto end = steady_clock::now() + longestWaitForTheEnd;
    for (move(); m_endIsNear && !m_result && steady_clock::now() < end; move()) {
        m_body.clear();
        curl_multi_poll(m_multi.get(), nullptr, 0, 10, nullptr);
    }
    curl_multi_remove_handle(m_multi.get(), m_easy.get());
    m_active = false;
    return m_result == CURLE_OK;
}

std::string UpstreamConnection::header(const char* name) const {
    curl_header* found = nullptr;
    const auto code = curl_easy_header(m_easy.get(), name, 0, CURLH_HEADER, -1, &found);
    return code == CURLHE_OK ? found->value : "";
}

bool UpstreamConnection::wasClosedBefore() const {
    long connects = 0;
    long answered = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_NUM_CONNECTS, &connects);
    curl_easy_getinfo(m_easy.get(), CURLINFO_HEADER_SIZE, &answered);
    return m_result == CURLE_SEND_ERROR && connects == 0 && answered == 0;
}

UpstreamFault UpstreamConnection::faultOf(CURLcode code) const {
    using Kind = UpstreamFault::Kind;
    long systemError = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_OS_ERRNO, &systemError);
    switch (code) {
        case CURLE_COULDNT_RESOLVE_HOST:
            return {Kind::unreachable, "its name could not be found"};
        case CURLE_COULDNT_RESOLVE_PROXY:
            return {Kind::unreachable, "the proxy of the environment could not be found"};
        case CURLE_COULDNT_CONNECT:
            return {Kind::unreachable,
                    systemError ? std::strerror(static_cast<int>(systemError)) : "no connection"};
        case CURLE_OPERATION_TIMEDOUT:
            return {Kind::unreachable, "no connection in time"};
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CACERT_BADFILE:
            return {Kind::unreachable, m_detail.data()};
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_WEIRD_SERVER_REPLY:
            return {Kind::brokenOff, "what answers there does not speak HTTP"};
        default:
            return {Kind::brokenOff, "the connection was closed before the answer was complete"};
    }
}

std::size_t UpstreamConnection::takeHeadLine(std::string_view line) {
    m_lastMove = steady_clock::now();
    long status = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &status);
    if ((line == "\r\n" || line == "\n") && status >= 200)
        m_status = static_cast<int>(status);
    return line.size();
}

std::size_t UpstreamConnection::takeBody(std::string_view bytes) {
    m_lastMove = steady_clock::now();
    if (m_body.size() >= mostReadAhead) {
        m_paused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    m_body.append(bytes);
    return bytes.size();
}

std::size_t UpstreamConnection::middleSize() const {
    return m_request.middle ? m_request.middle->size() : 0;
}

std::size_t UpstreamConnection::giveBody(char* target, std::size_t room) {
    m_lastMove = steady_clock::now();
    const std::string& before = m_request.before;
    const std::string& after = m_request.after;
    const std::size_t middleEnd = before.size() + middleSize();
    std::size_t count = 0;
    if (m_sent < before.size()) {
        count = before.copy(target, room, m_sent);
    } else if (m_sent < middleEnd) {
        const auto read = m_request.middle->read(m_sent - before.size(), target, room);
        if (read <= 0)
            return CURL_READFUNC_ABORT;
        count = static_cast<std::size_t>(read);
    } else {
        count = after.copy(target, room, m_sent - middleEnd);
    }
    m_sent += count;
    return count;
}

std::size_t UpstreamConnection::onHeadLine(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<UpstreamConnection*>(self)->takeHeadLine({data, size});
}

std::size_t UpstreamConnection::onBody(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<UpstreamConnection*>(self)->takeBody({data, size});
}

std::size_t UpstreamConnection::onSend(char* target, std::size_t size, std::size_t count,
                                       void* self) {
    return static_cast<UpstreamConnection*>(self)->giveBody(target, size * count);
}

/// A kept connection may turn out to be closed; libcurl then sends the request anew on another.
int UpstreamConnection::onRewind(void* self, curl_off_t offset, int origin) {
    if (origin != SEEK_SET || offset < 0)
        return CURL_SEEKFUNC_FAIL;
    static_cast<UpstreamConnection*>(self)->m_sent = static_cast<std::size_t>(offset);
    return CURL_SEEKFUNC_OK;
}

}  // namespace nulo::service
