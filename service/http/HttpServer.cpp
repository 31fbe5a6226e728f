#include "service/http/HttpServer.h"

#include <microhttpd.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include "base/SocketOwner.h"
#include "service/Strings.h"

namespace nulo::service {
namespace {

using Response = std::unique_ptr<MHD_Response, void (*)(MHD_Response*)>;

constexpr auto tickEvery = std::chrono::milliseconds(250);
constexpr auto refusalsLoggedEvery = std::chrono::seconds(10);
/// The time for which a refused request is still read: a client that is cut off while it sends
/// never reads why.
constexpr auto longestRefusedBody = std::chrono::seconds(5);
constexpr std::size_t largestHead = 32 * 1024;

int newEvent() {
    const int event = eventfd(0, EFD_CLOEXEC);
    if (event < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return event;
}

Answer failed() {
    return Answer(Failure{500, "The service failed. Try again; if it stays so, restart it.\n"});
}

Answer malformed() {
    return Answer(
        Failure{400, "The head of the request is malformed. Send it as HTTP/1.1 wants it.\n"});
}

Answer tooManyRequests() {
    return Answer(
        Failure{503, "The service has too many requests. Try again in a few seconds.\n", 3});
}

Response responseTo(const Answer& answer) {
    if (answer.file && answer.file->size > 0)
        return {MHD_create_response_from_fd64(answer.file->size, dup(*answer.file->descriptor)),
                MHD_destroy_response};
    return {MHD_create_response_from_buffer(
                answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY),
            MHD_destroy_response};
}

Response streamFrom(std::shared_ptr<Exchange> exchange) {
    constexpr std::size_t block = 16 * 1024;
    using Kept = std::shared_ptr<Exchange>;
    return {MHD_create_response_from_callback(
                MHD_SIZE_UNKNOWN, block,
                [](void* kept, std::uint64_t, char* target, std::size_t room) -> ssize_t {
                    return (*static_cast<Kept*>(kept))->read(target, room);
                },
                new Kept(std::move(exchange)), [](void* kept) { delete static_cast<Kept*>(kept); }),
            MHD_destroy_response};
}

}  // namespace

struct HttpServer::Connection {
    int socket = -1;
    Exchange::Instant deadline;
    std::optional<bool> isOwn = {};  // asked of the system at the first request
    std::shared_ptr<Exchange> exchange = {};
    std::list<Connection>::iterator self = {};
};

struct HttpServer::Visit {
    std::shared_ptr<Exchange> exchange;
    Connection* connection = nullptr;
    Exchange::Instant start;
    std::string path;
    std::string what;  // for the log
    std::optional<Intake> intake = {};
    std::optional<Answer> refusal = {};
    bool mustAnswerNow = false;  // its body is not waited for
    bool isAnswering = false;
    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;  // of an answer that is no stream
    int status = 0;              // 0: none was sent
};

/// The functions that libmicrohttpd calls, all on its one thread. `self` is the server.
struct HttpServer::Callbacks {
    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* path,
                                const char* method, const char*, const char* bytes,
                                std::size_t* size, void** context) {
        auto& server = *static_cast<HttpServer*>(self);
        try {
            auto* visit = static_cast<Visit*>(*context);
            const bool isNew = !visit;
            if (isNew)
                *context = visit = server.visitOf(connection, path, method);
            int result = MHD_YES;
            if (isNew)
                result = visit->mustAnswerNow
                             ? server.answer(connection, *visit, *std::move(visit->refusal))
                             : MHD_YES;
            else if (*size > 0)
                result = server.takeBody(*visit, {bytes, std::exchange(*size, 0)});
            else if (visit->refusal)
                result = server.answer(connection, *visit, *std::move(visit->refusal));
            else if (!visit->isAnswering)
                result = server.startAnswering(*visit);
            else if (auto head = visit->exchange->takeHead())
                result = server.answer(connection, *visit, *std::move(head));
            else
                result = MHD_NO;
            return result == MHD_YES ? MHD_YES : MHD_NO;
        } catch (const std::exception& error) {
            server.m_print(std::string("closed a connection: ") + error.what());
            return MHD_NO;
        }
    }

    static void onCompleted(void* self, MHD_Connection* connection, void** context,
                            MHD_RequestTerminationCode code) {
        auto& server = *static_cast<HttpServer*>(self);
        const std::unique_ptr<Visit> visit(static_cast<Visit*>(std::exchange(*context, nullptr)));
        if (!visit)
            return;
        visit->exchange->close();
        const bool whole = code == MHD_REQUEST_TERMINATED_COMPLETED_OK;
        if (whole)
            MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT,
                                      static_cast<unsigned>(server.m_limits.idle.count()));
        server.served(*visit, !whole);
    }

    static void onConnection(void* self, MHD_Connection* connection, void** context,
                             MHD_ConnectionNotificationCode code) {
        auto& server = *static_cast<HttpServer*>(self);
        const std::scoped_lock lock(server.m_mutex);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            const auto* info =
                MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
            auto& one = server.m_connections.emplace_back(
                Connection{info->connect_fd, server.m_clock.now() + server.m_limits.head});
            one.self = std::prev(server.m_connections.end());
            *context = &one;
        } else if (auto* one = static_cast<Connection*>(std::exchange(*context, nullptr))) {
            server.m_connections.erase(one->self);
        }
    }

    /// The texts hold what clients sent; of them all, refusals alone are of use to anybody.
    static void onMessage(void* self, const char* format, va_list) {
        if (std::strstr(format, "connection limit"))
            ++static_cast<HttpServer*>(self)->m_refused;
    }
};

HttpServer::HttpServer(const Clock& clock, Print print, Limits limits, Accept accept)
    : m_clock(clock),
      m_print(std::move(print)),
      m_limits(limits),
      m_accept(std::move(accept)),
      m_stopEvent(newEvent()) {}

HttpServer::~HttpServer() {
    if (m_daemon)
        MHD_stop_daemon(m_daemon);
    ::close(m_stopEvent);
}

Outcome HttpServer::start(const ListeningSocket& socket, const std::optional<TlsIdentity>& tls) {
    unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG;
    std::vector<MHD_OptionItem> more;
    const auto set = [&](MHD_OPTION name, const char* text) {
        more.push_back({name, 0, const_cast<char*>(text)});
    };
    if (tls) {
        flags |= MHD_USE_TLS;
        set(MHD_OPTION_HTTPS_MEM_CERT, tls->certificate.c_str());
        set(MHD_OPTION_HTTPS_MEM_KEY, tls->key.c_str());
        set(MHD_OPTION_HTTPS_PRIORITIES, "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2");
    }
    more.push_back({MHD_OPTION_END, 0, nullptr});
    errno = 0;
    m_daemon = MHD_start_daemon(
        flags, 0, nullptr, nullptr, &Callbacks::onRequest, this,  //
        MHD_OPTION_EXTERNAL_LOGGER, &Callbacks::onMessage, this,  // first: the others may fail
        MHD_OPTION_LISTEN_SOCKET, socket.descriptor,              //
        MHD_OPTION_STRICT_FOR_CLIENT, 1,                          //
        MHD_OPTION_CONNECTION_LIMIT, m_limits.connections,        //
        MHD_OPTION_PER_IP_CONNECTION_LIMIT, m_limits.connectionsOfOneAddress,          //
        MHD_OPTION_CONNECTION_TIMEOUT, static_cast<unsigned>(m_limits.pause.count()),  //
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, largestHead,                               //
        MHD_OPTION_NOTIFY_COMPLETED, &Callbacks::onCompleted, this,                    //
        MHD_OPTION_NOTIFY_CONNECTION, &Callbacks::onConnection, this,                  //
        MHD_OPTION_ARRAY, more.data(), MHD_OPTION_END);
    m_isSocketShared = socket.isShared;
    if (!m_daemon)
        return Error{std::string("the HTTP server cannot start: ") + std::strerror(errno)};
    return Success{};
}

void HttpServer::run() {
    pollfd entry{m_stopEvent, POLLIN, 0};
    while (poll(&entry, 1, static_cast<int>(tickEvery.count())) <= 0)
        tick();
    m_finishing = true;
    // The library's thread may still look at the socket: it is closed when that thread has ended.
    const int socket = MHD_quiesce_daemon(m_daemon);
    if (!m_isSocketShared)
        shutdown(socket, SHUT_RDWR);
    while (!isQuiet()) {
        std::this_thread::sleep_for(tickEvery / 10);
        tick();
    }
    MHD_stop_daemon(std::exchange(m_daemon, nullptr));
    ::close(socket);
}

void HttpServer::finish() {
    const eventfd_t one = 1;
    eventfd_write(m_stopEvent, one);
}

/// Whether nothing is in flight; a request that has arrived but was not read yet is.
bool HttpServer::isQuiet() {
    const std::scoped_lock lock(m_mutex);
    return m_exchanges == 0 && std::ranges::none_of(m_connections, [](const Connection& one) {
               int unread = 0;
               return ioctl(one.socket, FIONREAD, &unread) == 0 && unread > 0;
           });
}

void HttpServer::tick() {
    const auto now = m_clock.now();
    if (m_refused > 0 && now - m_refusalsLogged >= refusalsLoggedEvery) {
        m_print("refused " + std::to_string(m_refused.exchange(0)) +
                " connections: too many from one address");
        m_refusalsLogged = now;
    }
    std::vector<std::shared_ptr<Exchange>> exchanges;
    {
        const std::scoped_lock lock(m_mutex);
        for (const Connection& one : m_connections) {
            if (now >= one.deadline)
                shutdown(one.socket, SHUT_RDWR);
            if (one.exchange)
                exchanges.push_back(one.exchange);
        }
    }
    for (const auto& exchange : exchanges)
        exchange->tick(now);
}

HttpServer::Visit* HttpServer::visitOf(MHD_Connection* connection, const char* path,
                                       const char* method) {
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    auto& from = *static_cast<Connection*>(info->socket_context);
    MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT,
                              static_cast<unsigned>(m_limits.pause.count()));
    if (!from.isOwn)
        from.isOwn = isConnectedToOwn(from.socket);
    RequestHead head{method, path, {}, *from.isOwn};
    MHD_get_connection_values_n(
        connection, MHD_HEADER_KIND,
        [](void* headers, MHD_ValueKind, const char* name, std::size_t nameSize, const char* value,
           std::size_t valueSize) {
            static_cast<Headers*>(headers)->emplace_back(
                std::string(name, nameSize), value ? std::string(value, valueSize) : "");
            return MHD_YES;
        },
        &head.headers);

    auto visit = std::make_unique<Visit>();
    visit->connection = &from;
    visit->start = m_clock.now();
    visit->path = head.path;
    visit->what = printable(head.method, 20) + " " + printable(head.path, 100);
    bool tooMany = false;
    {
        const std::scoped_lock lock(m_mutex);
        tooMany = ++m_exchanges > m_limits.requests;
        visit->exchange.reset(new Exchange(connection, from.socket, m_limits.exchange),
                              [this](Exchange* exchange) {
                                  delete exchange;
                                  const std::scoped_lock counted(m_mutex);
                                  --m_exchanges;
                              });
        from.exchange = visit->exchange;
    }
    const bool isSound = head.isSound();
    auto accepted = !isSound  ? Result<Intake, Answer>(malformed())
                    : tooMany ? Result<Intake, Answer>(tooManyRequests())
                              : m_accept(head);
    if (accepted)
        visit->intake = std::move(accepted).value();
    else
        visit->refusal = accepted.error();
    const bool hasNoBodyYet = head.count("Expect") > 0;
    const bool hasNoClearEnd = !isSound || head.count("Transfer-Encoding") > 0;
    visit->mustAnswerNow = visit->refusal && (hasNoBodyYet || hasNoClearEnd);
    const std::scoped_lock lock(m_mutex);
    from.deadline = visit->start + (visit->refusal ? std::min<std::chrono::milliseconds>(
                                                         longestRefusedBody, m_limits.body)
                                                   : m_limits.body);
    return visit.release();
}

int HttpServer::takeBody(Visit& visit, std::string_view bytes) {
    visit.bytesIn += bytes.size();
    if (visit.refusal)
        return MHD_YES;  // what is left of it is dropped
    visit.refusal = visit.intake->take(bytes);
    return MHD_YES;
}

int HttpServer::startAnswering(Visit& visit) {
    visit.isAnswering = true;
    const auto now = m_clock.now();
    {
        const std::scoped_lock lock(m_mutex);
        visit.connection->deadline = now + m_limits.answer;
    }
    visit.exchange->suspendUntilAnswered(now);
    try {
        std::thread([exchange = visit.exchange,
                     answer = std::move(visit.intake->answer)]() mutable {
            try {
                answer(*exchange);
            } catch (const std::exception&) {
                exchange->answer(failed());
            }
            answer = nullptr;
            exchange->abandon();
            exchange.reset();
        }).detach();
    } catch (const std::system_error&) {
        visit.exchange->answer(Answer(
            Failure{503, "The service has no more threads. Try again in a few seconds.\n", 3}));
    }
    return MHD_YES;
}

int HttpServer::answer(MHD_Connection* connection, Visit& visit, Answer answer) {
    const Response response =
        visit.exchange->isStreamed() ? streamFrom(visit.exchange) : responseTo(answer);
    if (!response)
        return MHD_NO;
    const auto add = [&](const char* name, const std::string& value) {
        MHD_add_response_header(response.get(), name, value.c_str());
    };
    add("Content-Type", answer.type);
    add("Cache-Control", "no-store");
    for (const auto& [name, value] : answer.headers)
        add(name.c_str(), value);
    if (!visit.isAnswering || m_finishing)
        add("Connection", "close");
    visit.status = answer.status;
    visit.bytesOut = answer.file ? answer.file->size : answer.body.size();
    return MHD_queue_response(connection, static_cast<unsigned>(answer.status), response.get());
}

void HttpServer::served(Visit& visit, bool brokenOff) {
    const auto now = m_clock.now();
    {
        const std::scoped_lock lock(m_mutex);
        visit.connection->exchange.reset();  // never the last: the visit holds one
        visit.connection->deadline = now + m_limits.idle + m_limits.head;
    }
    if (visit.status == 0)
        return;
    onServed(visit.path, visit.status, now - visit.start, brokenOff);
    m_print(visit.what + " " + std::to_string(visit.status) + " " +
            std::to_string(wholeMilliseconds(now - visit.start)) + " ms, " +
            std::to_string(visit.bytesIn) + " bytes in, " +
            std::to_string(visit.bytesOut + visit.exchange->bytesOut()) + " out" +
            (brokenOff ? ", broken off" : ""));
}

}  // namespace nulo::service
