#include "platform/http/CurlTransfer.h"

#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <utility>

#include "base/Text.h"
#include "platform/http/CurlFailure.h"
#include "platform/http/SocketActivity.h"

namespace nulo {
namespace {

constexpr int mostRedirects = 8;
constexpr std::size_t longestRedirectBody = 64 * 1024;
/// An idle connection is offered again for this long: longer than a dictation after its warm-up.
constexpr long secondsConnectionsAreKept = 600;
constexpr long secondsBetweenKeepAliveProbes = 30;
/// Twenty seconds of speech and more. The kernel allows for less than that on a connection that has
/// carried little yet, and the end of a recording would wait here for the far end's answers.
constexpr int sendBufferBytes = 208 * 1024;

template <typename T>
T infoOf(CURL* easy, CURLINFO info) {
    T value{};
    curl_easy_getinfo(easy, info, &value);
    return value;
}

/// As a beginning: the kernel still lets it grow with the connection's pace.
void widenSendBuffer(curl_socket_t socket) {
    const int grows = 0;
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes);
    setsockopt(socket, SOL_SOCKET, SO_BUF_LOCK, &grows, sizeof grows);
}

}  // namespace

Result<CURL*> CurlTransfer::prepare() {
    if (const auto fault = faultOf(m_request))
        return *fault;
    auto url = m_next ? m_next : parseHttpUrl(m_request.url);
    if (!url)
        return Error{"The address of the speech service is not a valid http or https URL"};
    m_url = std::move(*url);
    m_next.reset();
    m_easy.reset(curl_easy_init());
    if (!m_easy)
        return Error{"There is not enough memory for the request"};
    m_head = {};
    m_redirectBody = 0;
    m_requestEnd.reset();
    m_responseStart.reset();
    m_detail.front() = '\0';
    m_socket = CURL_SOCKET_BAD;
    m_bytesMoved = 0;

    setMethodAndBody();
    setHeaders();
    setConnection();
    set(CURLOPT_ERRORBUFFER, m_detail.data());
    set(CURLOPT_HEADERFUNCTION, &CurlTransfer::onHeadLine);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &CurlTransfer::onBody);
    set(CURLOPT_WRITEDATA, this);
    m_fetchStart = m_lastActivity = std::chrono::steady_clock::now();
    return m_easy.get();
}

void CurlTransfer::setMethodAndBody() {
    set(CURLOPT_URL, m_url.text.c_str());
    if (m_request.method == "HEAD") {
        set(CURLOPT_NOBODY, 1L);
    } else if (m_request.method != "GET") {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_request.body.size()));
        set(CURLOPT_POSTFIELDS, m_request.body.data());
        if (m_request.method != "POST")
            set(CURLOPT_CUSTOMREQUEST, m_request.method.c_str());
    }
}

void CurlTransfer::setHeaders() {
    m_headers.reset();
    const auto append = [this](const std::string& line) {
        if (curl_slist* longer = curl_slist_append(m_headers.get(), line.c_str())) {
            (void)m_headers.release();
            m_headers.reset(longer);
        }
    };
    const HttpHeaders headers = withoutReplacedHeaders(m_request.headers);
    for (const auto& [name, value] : headers)
        append(value.empty() ? name + ";" : name + ": " + value);
    // libcurl's own: a pause before a long body, and a form type that nobody asked for.
    for (const char* name : {"Expect", "Content-Type"})
        if (std::none_of(headers.begin(), headers.end(),
                         [&](const auto& header) { return sameHeaderName(header.first, name); }))
            append(std::string(name) + ":");
    set(CURLOPT_HTTPHEADER, m_headers.get());
}

void CurlTransfer::setConnection() {
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!m_session.authorities.empty())
        set(CURLOPT_CAINFO, m_session.authorities.c_str());
    if (m_url.isLoopback())
        set(CURLOPT_PROXY, "");
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);  // a session that ends does not wait for the resolver's thread
    set(CURLOPT_MAXAGE_CONN, secondsConnectionsAreKept);
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    set(CURLOPT_TCP_KEEPIDLE, secondsBetweenKeepAliveProbes);
    set(CURLOPT_TCP_KEEPINTVL, secondsBetweenKeepAliveProbes);
    // Silence is ours to notice; this makes libcurl divide the time among a host's addresses.
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(idleTimeout().count()));
    set(CURLOPT_OPENSOCKETFUNCTION, &CurlTransfer::onOpen);
    set(CURLOPT_OPENSOCKETDATA, this);
    set(CURLOPT_CLOSESOCKETFUNCTION, &CurlTransfer::onClose);
    set(CURLOPT_CLOSESOCKETDATA, &m_session);  // a kept connection outlives this transfer
    set(CURLOPT_PREREQFUNCTION, &CurlTransfer::onConnected);
    set(CURLOPT_PREREQDATA, this);
}

void CurlTransfer::look(std::chrono::steady_clock::time_point now) {
    CURL* easy = m_easy.get();
    const auto sent = infoOf<curl_off_t>(easy, CURLINFO_SIZE_UPLOAD_T);
    const auto received = infoOf<curl_off_t>(easy, CURLINFO_SIZE_DOWNLOAD_T);
    const auto moved = static_cast<std::uint64_t>(sent + received) + bytesExchanged(m_socket);
    if (moved != m_bytesMoved) {
        m_bytesMoved = moved;
        m_lastActivity = now;
    }
    if (!m_requestEnd && infoOf<curl_off_t>(easy, CURLINFO_PRETRANSFER_TIME_T) > 0 &&
        sent == static_cast<curl_off_t>(m_request.body.size()))
        m_requestEnd = now;
}

HttpTransactionMetrics CurlTransfer::metrics() const {
    CURL* easy = m_easy.get();
    const auto after = [&](CURLINFO step) -> HttpTransactionMetrics::Instant {
        const auto microseconds = infoOf<curl_off_t>(easy, step);
        if (microseconds <= 0)
            return std::nullopt;
        return m_fetchStart + std::chrono::microseconds(microseconds);
    };
    HttpTransactionMetrics result;
    result.fetchStart = m_fetchStart;
    result.requestStart = after(CURLINFO_PRETRANSFER_TIME_T);
    result.reusedConnection = result.requestStart && infoOf<long>(easy, CURLINFO_NUM_CONNECTS) == 0;
    if (!result.reusedConnection) {
        result.domainLookupEnd = after(CURLINFO_NAMELOOKUP_TIME_T);
        if (result.domainLookupEnd)
            result.domainLookupStart = m_fetchStart;
        const auto connected = after(CURLINFO_CONNECT_TIME_T);
        result.secureConnectionEnd = after(CURLINFO_APPCONNECT_TIME_T);
        if (result.secureConnectionEnd)
            result.secureConnectionStart = connected;
        // A connection is established when its security is.
        result.connectEnd = result.secureConnectionEnd ? result.secureConnectionEnd : connected;
        if (result.connectEnd)
            result.connectStart = result.domainLookupEnd;
    }
    if (m_head.isFinished()) {
        result.responseStart = m_responseStart;  // libcurl's starts with the first byte sent
        // libcurl's zero lies a little after fetchStart
        result.responseEnd = std::max(result.responseStart, after(CURLINFO_TOTAL_TIME_T));
    }
    result.requestEnd = m_requestEnd;
    if (result.requestEnd && result.responseStart)  // both seen in one turn of the loop
        result.requestEnd = std::min(*result.requestEnd, *result.responseStart);
    switch (infoOf<long>(easy, CURLINFO_HTTP_VERSION)) {
        case CURL_HTTP_VERSION_1_0:
            result.protocolName = "http/1.0";
            break;
        case CURL_HTTP_VERSION_1_1:
            result.protocolName = "http/1.1";
            break;
        case CURL_HTTP_VERSION_2_0:
            result.protocolName = "h2";
            break;
        default:
            break;
    }
    return result;
}

bool CurlTransfer::endExchange(CURLcode result) {
    m_metrics.push_back(metrics());
    if (m_next) {  // also when its body was cut off: nobody wants that
        adaptToRedirect(m_request, m_head.head().status);
        return true;
    }
    if (result == CURLE_OK) {
        complete(std::nullopt);
        return false;
    }
    CurlFailure failure;
    failure.code = result;
    failure.systemError = static_cast<int>(infoOf<long>(m_easy.get(), CURLINFO_OS_ERRNO));
    failure.proxyStatus = static_cast<int>(infoOf<long>(m_easy.get(), CURLINFO_HTTP_CONNECTCODE));
    failure.detail = m_detail.data();
    failure.peer = m_request.peer;
    failure.idleTimeout = idleTimeout();
    complete(describe(failure, m_url));
    return false;
}

void CurlTransfer::endInSilence() {
    m_metrics.push_back(metrics());
    const bool connected = m_metrics.back().requestStart.has_value();
    complete(describeSilence(idleTimeout(), connected, m_request.peer, m_url));
}

void CurlTransfer::complete(const std::optional<Error>& error) {
    if (!m_heldBack.empty() && !m_session.stopping)
        m_session.delegate.didReceiveData(m_task, std::exchange(m_heldBack, {}));
    if (!m_session.stopping)
        m_session.delegate.didCollectMetrics(m_task, m_metrics);
    if (!m_session.stopping)
        m_session.delegate.didComplete(m_task, error);
}

bool CurlTransfer::takeHeadLine(std::string_view line) {
    if (m_head.isFinished())
        return true;  // a trailer
    if (line.starts_with("HTTP/"))
        m_responseStart = std::chrono::steady_clock::now();
    const auto status = static_cast<int>(infoOf<long>(m_easy.get(), CURLINFO_RESPONSE_CODE));
    const auto outcome = m_head.take(line, status);
    if (outcome == ResponseHeadParser::Outcome::finished) {
        if (const auto target = redirectTarget(m_head.head());
            target && m_redirects < mostRedirects)
            m_next = resolveHttpUrl(m_url, *target);
        if (m_next && m_next->origin != m_url.origin)
            m_next.reset();  // what the request carries is meant for this origin alone
        if (m_next)
            ++m_redirects;
        else if (!m_session.stopping)
            m_session.delegate.didReceiveResponse(m_task, m_head.head());
    }
    return outcome != ResponseHeadParser::Outcome::refused;
}

bool CurlTransfer::takeBody(std::string_view bytes) {
    if (m_next) {
        m_redirectBody += bytes.size();
        return m_redirectBody <= longestRedirectBody;
    }
    if (m_heldBack.empty()) {
        handOver(bytes);
    } else {
        const std::string joined = std::exchange(m_heldBack, {}).append(bytes);
        handOver(joined);
    }
    return true;
}

void CurlTransfer::handOver(std::string_view bytes) {
    const std::size_t complete = completeUtf8Length(bytes);
    m_heldBack = bytes.substr(complete);
    if (complete > 0 && !m_session.stopping)
        m_session.delegate.didReceiveData(m_task, bytes.substr(0, complete));
}

std::size_t CurlTransfer::onHeadLine(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<CurlTransfer*>(self)->takeHeadLine({data, size}) ? size : 0;
}

std::size_t CurlTransfer::onBody(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<CurlTransfer*>(self)->takeBody({data, size}) ? size : 0;
}

curl_socket_t CurlTransfer::onOpen(void* self, curlsocktype, curl_sockaddr* address) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    transfer.m_socket =
        ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (transfer.m_socket != CURL_SOCKET_BAD) {
        transfer.m_session.sockets.insert(transfer.m_socket);
        widenSendBuffer(transfer.m_socket);
    }
    return transfer.m_socket;
}

int CurlTransfer::onClose(void* session, curl_socket_t socket) {
    static_cast<CurlSessionState*>(session)->sockets.erase(socket);
    return ::close(socket);
}

/// Tells which of the session's connections carries this exchange, a kept one included.
int CurlTransfer::onConnected(void* self, char*, char*, int, int localPort) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const auto& sockets = transfer.m_session.sockets;
    const auto socket = std::find_if(sockets.begin(), sockets.end(), [&](curl_socket_t candidate) {
        return localPortOf(candidate) == localPort;
    });
    transfer.m_socket = socket == sockets.end() ? CURL_SOCKET_BAD : *socket;
    return CURL_PREREQFUNC_OK;
}

}  // namespace nulo
