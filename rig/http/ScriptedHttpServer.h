#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace nulo {

struct ReceivedRequest {
    std::string method;
    std::string target;
    std::vector<std::pair<std::string, std::string>> headers;  // in the order received
    std::string body;
    int connection = 0;  // which of the accepted connections, from 1

    /// The first header of that name, without regard to case.
    std::optional<std::string> header(std::string_view name) const;
};

/// A real HTTP/1.1 server on an ephemeral loopback port, whose answers a test writes byte by byte,
/// misbehaviour included. One thread a connection; connections are kept unless the handler ends
/// them. Stopping cuts everything off and joins.
class ScriptedHttpServer {
  public:
    /// What a handler does to the client. All calls end early once the server stops.
    class Connection {
      public:
        /// The bytes as they are; false when the client is gone.
        bool send(std::string_view bytes);
        /// At most that many raw bytes, for requests whose body was left unread; empty at the end.
        std::string receive(std::size_t most);
        /// Between two sends: the pace of the peer, never a wait for the program under test.
        void pause(std::chrono::milliseconds duration);
        /// Until release() or the end of the server.
        void stall();
        /// Until the client closes its side, whatever it still sends being dropped.
        void waitForClientToLeave();
        void close();
        /// Ends the connection with RST.
        void reset();

      private:
        friend class ScriptedHttpServer;
        Connection(ScriptedHttpServer& server, int socket, int number)
            : m_server(server), m_socket(socket), m_number(number) {}

        void serve();
        std::optional<ReceivedRequest> readRequest();
        bool readMore();

        ScriptedHttpServer& m_server;
        int m_socket;  // -1 once closed; guarded by the server's mutex when the server looks at it
        const int m_number;
        std::string m_unread;
        std::thread m_thread;
    };

    /// Called on the connection's thread, for several connections at once.
    using Handler = std::function<void(const ReceivedRequest&, Connection&)>;
    enum class Bodies { read, leftToTheHandler };

    /// Throws when no port can be had.
    explicit ScriptedHttpServer(Handler handler, Bodies bodies = Bodies::read);
    ~ScriptedHttpServer();
    ScriptedHttpServer(const ScriptedHttpServer&) = delete;
    ScriptedHttpServer& operator=(const ScriptedHttpServer&) = delete;

    int port() const { return m_port; }
    std::string url(std::string_view path = {}) const;
    int acceptedConnections() const;
    /// Those whose handler was called, in that order.
    std::vector<ReceivedRequest> requests() const;
    /// Lets all stalls go on, later ones too.
    void release();
    void stop();

  private:
    void acceptConnections();

    const Handler m_handler;
    const Bodies m_bodies;
    int m_listener = -1;
    int m_port = 0;
    mutable std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::list<Connection> m_connections;
    std::vector<ReceivedRequest> m_requests;
    bool m_released = false;
    bool m_stopping = false;
    std::thread m_acceptor;
};

/// A whole response with Content-Length; each of `headers` is a line without its end.
std::string httpResponse(int status, std::string_view body, std::vector<std::string> headers = {});

/// One chunk of a chunked body; an empty one ends the body.
std::string httpChunk(std::string_view bytes);

}  // namespace nulo
