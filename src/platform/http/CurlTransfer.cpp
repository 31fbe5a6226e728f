#include "platform/http/CurlTransfer.h"

#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <utility>

#include "base/Ascii.h"
#include "base/SocketOwner.h"
#include "base/Text.h"
#include "platform/http/CurlFailure.h"

namespace nulo {
namespace {

constexpr std::size_t longestHead = 256 * 1024;
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

/// Sets the size that the buffer begins with; the kernel still lets it grow with the connection's
/// pace.
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
        return Error{"The address of " + m_request.peer + " is not a valid http or https URL"};
    m_url = std::move(*url);
    m_next.reset();
    m_easy.reset(curl_easy_init());
    if (!m_easy)
        return Error{"There is not enough memory for the request"};
    m_head = {};
    m_headBytes = m_redirectBody = 0;
    m_isRedirect = m_isEnough = false;
    m_refusal.reset();
    m_requestEnd.reset();
    m_responseStart.reset();
    m_detail.front() = '\0';
    m_connection.reset();
    m_carrier.reset();
    m_activity = {};
    m_written = m_read = 0;

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
    // Keeps libcurl from adding headers of its own: a pause before a long body, and a form's type.
    for (const char* name : {"Expect", "Content-Type"})
        if (std::none_of(headers.begin(), headers.end(), [&](const auto& header) {
                return equalIgnoringAsciiCase(header.first, name);
            }))
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
    if (isThisMachine(m_url.host))
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
    const auto written =
        static_cast<std::uint64_t>(sent + infoOf<long>(easy, CURLINFO_REQUEST_SIZE));
    const auto read =
        static_cast<std::uint64_t>(received + infoOf<long>(easy, CURLINFO_HEADER_SIZE));
    const SocketActivity activity = m_connection ? m_connection->activity() : SocketActivity();
    if (written != m_written)
        m_requestAcked = activity.acknowledged + activity.waiting;
    // HTTP/2, which is spoken over TLS only, shares a connection: others' bytes are no sign of life
    // of this exchange, and the peer's answers to them neither.
    const bool isShared = m_url.isEncrypted && m_carrier && m_carrier == m_connection;
    const bool isTaken = activity.acknowledged != m_activity.acknowledged &&
                         (!isShared || m_activity.acknowledged < m_requestAcked);
    const bool isGiven = !isShared && activity.received != m_activity.received;
    if (written != m_written || read != m_read || isTaken || isGiven)
        m_lastActivity = now;
    m_activity = activity;
    m_written = written;
    m_read = read;
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
    if (m_head.status != 0) {
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
    if (m_next) {  // also when its body, which is of no use, was cut off
        adaptToRedirect(m_request, m_head.status);
        return true;
    }
    if (result == CURLE_OK || m_isEnough)
        complete(std::nullopt);
    else
        complete(m_refusal ? *m_refusal : failure(result));
    return false;
}

Error CurlTransfer::failure(CURLcode code) const {
    CurlFailure failure;
    failure.code = code;
    failure.systemError = static_cast<int>(infoOf<long>(m_easy.get(), CURLINFO_OS_ERRNO));
    failure.proxyStatus = static_cast<int>(infoOf<long>(m_easy.get(), CURLINFO_HTTP_CONNECTCODE));
    failure.detail = m_detail.data();
    failure.peer = m_request.peer;
    failure.idleTimeout = idleTimeout();
    return describe(failure, m_url);
}

void CurlTransfer::endInSilence() {
    m_metrics.push_back(metrics());
    const bool connected = m_metrics.back().requestStart.has_value();
    complete(describeSilence(idleTimeout(), connected, m_request.peer, m_url));
}

void CurlTransfer::complete(const std::optional<Error>& error) {
    if (!m_heldBack.empty() && !m_isEnough && !m_session.stopping)
        m_session.delegate.didReceiveData(m_task, std::exchange(m_heldBack, {}));
    if (!m_session.stopping)
        m_session.delegate.didCollectMetrics(m_task, m_metrics);
    if (!m_session.stopping)
        m_session.delegate.didComplete(m_task, error);
}

bool CurlTransfer::takeHeadLine(std::string_view line) {
    if (m_head.status != 0)
        return true;  // a trailer
    m_headBytes += line.size();
    if (m_headBytes > longestHead)
        return false;
    if (line.starts_with("HTTP/"))
        m_responseStart = std::chrono::steady_clock::now();
    const auto status = static_cast<int>(infoOf<long>(m_easy.get(), CURLINFO_RESPONSE_CODE));
    const bool isInterim = status < 200;
    if ((line == "\r\n" || line == "\n") && !isInterim)
        takeHead(status);
    return true;
}

void CurlTransfer::takeHead(int status) {
    m_head.status = status;
    const curl_header* header = nullptr;
    while ((header = curl_easy_nextheader(m_easy.get(), CURLH_HEADER, -1,
                                          const_cast<curl_header*>(header))))
        m_head.headers.emplace_back(header->name, header->value);

    const auto target = redirectTarget(m_head);
    m_isRedirect = target.has_value();
    if (target && m_redirects < mostRedirects)
        m_next = resolvedHttpUrl(m_url, *target);
    if (m_next && m_next->origin != m_url.origin)
        m_next.reset();  // what the request carries is meant for this origin alone
    if (m_next)
        ++m_redirects;
    else if (!m_session.stopping)
        m_session.delegate.didReceiveResponse(m_task, m_head);
}

bool CurlTransfer::takeBody(std::string_view bytes) {
    m_redirectBody += m_isRedirect ? bytes.size() : 0;
    m_isEnough = m_redirectBody > longestRedirectBody;
    if (m_isEnough || m_next)
        return !m_isEnough;
    const std::string joined =
        m_heldBack.empty() ? std::string() : std::exchange(m_heldBack, {}).append(bytes);
    m_isEnough = !handOver(joined.empty() ? bytes : std::string_view(joined));
    return !m_isEnough;
}

bool CurlTransfer::handOver(std::string_view bytes) {
    const std::size_t complete = completeUtf8Length(bytes);
    m_heldBack = bytes.substr(complete);
    return complete == 0 || m_session.stopping ||
           m_session.delegate.didReceiveData(m_task, bytes.substr(0, complete));
}

bool CurlTransfer::mayHaveArrived() const {
    // A peer that hung up before it took a byte has read none: had its kernel taken one, the end of
    // the stream would say so. A bare reset says nothing of the kind.
    const SocketActivity activity = m_carrier->activity();
    return activity.acknowledged != m_atRequest.acknowledged ||
           activity.received == m_atRequest.received;
}

bool CurlTransfer::beginRequest(int localPort) {
    const bool isRepeatable = m_request.method == "GET" || m_request.method == "HEAD";
    if (m_carrier && !isRepeatable && mayHaveArrived()) {
        m_refusal = failure(CURLE_GOT_NOTHING);
        return false;
    }
    const auto& open = m_session.connections;
    const auto found = std::find_if(open.begin(), open.end(), [&](const auto& connection) {
        return localPortOf(connection->socket) == localPort;
    });
    m_carrier = found == open.end() ? std::make_shared<CurlConnection>() : *found;
    m_connection = m_carrier;
    const bool isSure = m_url.isEncrypted || !isThisMachine(m_url.host);
    if (!isSure && !m_carrier->isToOwnProgram) {
        m_carrier->isToOwnProgram = isConnectedToOwn(m_carrier->socket);
        if (!m_carrier->isToOwnProgram) {
            m_refusal = Error{"What answers at " + m_url.authority +
                              " is not this user's program, nor the system's: nothing was sent"};
            return false;
        }
    }
    m_atRequest = m_activity = m_carrier->activity();
    m_requestAcked = m_atRequest.acknowledged + m_atRequest.waiting;
    return true;
}

std::size_t CurlTransfer::onHeadLine(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<CurlTransfer*>(self)->takeHeadLine({data, size}) ? size : 0;
}

std::size_t CurlTransfer::onBody(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<CurlTransfer*>(self)->takeBody({data, size}) ? size : 0;
}

curl_socket_t CurlTransfer::onOpen(void* self, curlsocktype, curl_sockaddr* address) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const int socket =
        ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket == CURL_SOCKET_BAD)
        return socket;
    widenSendBuffer(socket);
    transfer.m_connection = std::make_shared<CurlConnection>();
    transfer.m_connection->socket = socket;
    transfer.m_session.connections.push_back(transfer.m_connection);
    return socket;
}

int CurlTransfer::onClose(void* session, curl_socket_t socket) {
    std::erase_if(static_cast<CurlSessionState*>(session)->connections, [&](const auto& open) {
        if (open->socket != socket)
            return false;
        open->atEnd = activityOf(socket);
        open->socket = CURL_SOCKET_BAD;
        return true;
    });
    return ::close(socket);
}

/// libcurl calls this also before an exchange on a kept connection, and before each further attempt
/// at it.
int CurlTransfer::onConnected(void* self, char*, char*, int, int localPort) {
    return static_cast<CurlTransfer*>(self)->beginRequest(localPort) ? CURL_PREREQFUNC_OK
                                                                     : CURL_PREREQFUNC_ABORT;
}

}  // namespace nulo
