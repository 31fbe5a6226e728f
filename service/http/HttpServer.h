#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "base/Clock.h"
#include "base/Print.h"
#include "base/Result.h"
#include "service/http/Exchange.h"
#include "service/http/ListeningSocket.h"
#include "service/http/Tls.h"

struct MHD_Daemon;

namespace nulo::service {

/// How a request is taken once its head has been accepted.
struct Intake {
    /// Takes the next bytes of the body, on the server's thread; an answer refuses the request.
    std::function<std::optional<Answer>(std::string_view)> take;
    /// Called once the body is whole, on a thread of its own. A request that it leaves unanswered
    /// is broken off.
    std::function<void(Exchange&)> answer;
};

/// Listens, bounds every wait, and logs a line a request: method, path, status, time and sizes,
/// never what was said. One thread reads and writes for all connections; each request is answered
/// on a thread of its own. Every answer to a request that was not accepted ends its connection.
class HttpServer {
  public:
    struct Limits {
        std::chrono::seconds pause{10};  // between two bytes; also to the first of a connection
        std::chrono::seconds idle{75};   // between two requests
        std::chrono::milliseconds head = std::chrono::seconds(20);    // all of it
        std::chrono::milliseconds body = std::chrono::minutes(3);     // all of it
        std::chrono::milliseconds answer = std::chrono::minutes(60);  // all of it
        unsigned connections = 1024;
        unsigned connectionsOfOneAddress = 512;
        int requests = 512;  // at once; beyond them: 503
        Exchange::Limits exchange = {};
    };
    /// Whether a request is taken at all; on the server's thread, so it must not wait.
    using Accept = std::function<Result<Intake, Answer>(const RequestHead&)>;

    HttpServer(const Clock& clock, Print print, Limits limits, Accept accept);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Called behind each answered request, on the server's thread. `path` is as it was asked.
    std::function<void(const std::string& path, int status, std::chrono::nanoseconds duration,
                       bool brokenOff)>
        onServed = [](const std::string&, int, std::chrono::nanoseconds, bool) {};

    /// Takes the socket over. With `tls`, clients have to speak TLS.
    Outcome start(const ListeningSocket& socket, const std::optional<TlsIdentity>& tls);
    /// Serves until finish(), then until the last request in flight is answered. Connections that
    /// another holder of the socket can still accept are left to it.
    void run();
    /// Call it once after start(), from any thread; it may come before run(). Returns at once.
    void finish();

  private:
    struct Callbacks;  // libmicrohttpd's
    struct Connection;
    struct Visit;

    Visit* visitOf(MHD_Connection* connection, const char* path, const char* method);
    int takeBody(Visit& visit, std::string_view bytes);
    int answer(MHD_Connection* connection, Visit& visit, Answer answer);
    int startAnswering(Visit& visit);
    void served(Visit& visit, bool brokenOff);
    void tick();
    bool isQuiet();

    const Clock& m_clock;
    const Print m_print;
    const Limits m_limits;
    const Accept m_accept;
    const int m_stopEvent;
    MHD_Daemon* m_daemon = nullptr;
    bool m_isSocketShared = false;
    std::atomic<bool> m_finishing = false;
    std::atomic<unsigned long> m_refused = 0;  // connections, since the last line about them
    Exchange::Instant m_refusalsLogged;
    std::mutex m_mutex;                   // guards the rest
    std::list<Connection> m_connections;  // all that are open
    int m_exchanges = 0;                  // alive
};

}  // namespace nulo::service
