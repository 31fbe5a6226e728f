#pragma once

#include <httplib.h>

#include <string>
#include <thread>

#include "base/Clock.h"
#include "base/Print.h"
#include "base/Result.h"
#include "service/http/ConnectionStream.h"
#include "service/http/InheritedSocket.h"

namespace nulo::service {

/// Listens, gives each connection a thread and bounded waits, and logs a line a request: method,
/// path, status, time and sizes, never what was said. Handlers are set on the base class.
class HttpServer final : public httplib::Server {
  public:
    struct Limits {
        ConnectionStream::Limits connection;
        std::size_t connections = 512;  // beyond them: 503
    };

    HttpServer(const Clock& clock, Print print, Limits limits);
    ~HttpServer() override;

    /// Called behind each answered request, on its connection's thread. `path` is as it was asked.
    std::function<void(const std::string& path, int status, std::chrono::nanoseconds duration,
                       bool brokenOff)>
        onServed = [](const std::string&, int, std::chrono::nanoseconds, bool) {};

    /// Clients have to speak TLS. Before run(); the context must outlive it.
    void useTls(const TlsContext& context) { m_tls = &context; }
    /// The port that it listens on.
    Result<int> listenOn(const std::string& address, int port);
    /// Stays open for its other holders in the end: they take what run() no longer accepts.
    void listenOn(const InheritedSocket& socket);
    /// Serves until finish(), then until the last request in flight is answered.
    void run();
    /// Once, after listenOn(); any thread, also before run(). Returns at once.
    void finish();

  private:
    bool process_and_close_socket(socket_t socket) override;
    bool serveRequest(ConnectionStream& stream);
    bool isFinishing() const;

    const Clock& m_clock;
    const Print m_print;
    const Limits m_limits;
    const int m_stopEvent;
    const TlsContext* m_tls = nullptr;
    bool m_inherited = false;
    std::thread::id m_acceptingThread;  // set before there is any other
};

}  // namespace nulo::service
