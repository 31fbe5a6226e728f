#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "service/http/Messages.h"

struct MHD_Connection;

namespace nulo::service {

/// One request's answer, on its way from the thread that makes it to the server's thread, which
/// sends it. At most `mostAhead` bytes wait for a client that reads slowly.
class Exchange {
  public:
    struct Limits {
        /// How long a client waits for the first byte of an answer, and for each one after it,
        /// before it takes the service for dead. Nulo waits for 60 seconds.
        std::chrono::milliseconds firstByte = std::chrono::seconds(57);
        std::chrono::milliseconds nextByte = std::chrono::seconds(20);
    };
    using Instant = std::chrono::steady_clock::time_point;

    Exchange(MHD_Connection* connection, int socket, Limits limits)
        : m_connection(connection), m_socket(socket), m_limits(limits) {}

    /// \name The thread that makes the answer
    /// @{
    /// The whole answer; behind begin(), or when a promised one has begun, only its body. A failure
    /// that comes so late breaks the answer off.
    void answer(Answer answer);
    /// The head of an answer, and what there is of its body.
    void begin(Answer head);
    /// Waits while too much is on its way; false when the client is gone.
    bool write(std::string_view bytes);
    void end();
    /// False when the client has hung up, as far as this machine's system knows.
    bool isWanted() const;
    /// Promises an answer. When none has begun by the time that a client waits for, `head` is sent,
    /// and then a `filler` now and again until there is more.
    void promise(Answer head, std::string filler);
    /// Says that no more will come: an answer that has no end by now is broken off.
    void abandon();
    /// @}

    /// \name The server's thread
    /// @{
    /// Stops the connection until there is an answer.
    void suspendUntilAnswered(Instant bodyEnd);
    /// The head, once there is one; nothing when there will be none.
    std::optional<Answer> takeHead();
    bool isStreamed() const;
    /// Takes the next bytes of the body; returns what libmicrohttpd's content readers return.
    std::ptrdiff_t read(char* target, std::size_t room);
    /// The connection has done with the exchange.
    void close();
    std::uint64_t bytesOut() const;
    /// @}

    /// Sends what was promised when it is due. Any thread, now and again.
    void tick(Instant now);

  private:
    static constexpr std::size_t mostAhead = 64 * 1024;

    void beginLocked(Answer head);
    void suspend();
    void wake();

    MHD_Connection* const m_connection;
    const int m_socket;
    const Limits m_limits;
    mutable std::mutex m_mutex;  // guards all below
    std::condition_variable m_changed;
    std::optional<Answer> m_head;
    std::optional<std::pair<Answer, std::string>> m_promise;
    std::string m_filler;  // sent while not empty
    Instant m_due;         // of the promise, then of the next filler
    std::string m_ahead;
    std::uint64_t m_bytesOut = 0;
    bool m_begun = false;
    bool m_streamed = false;
    bool m_ended = false;
    bool m_suspended = false;
    bool m_closed = false;
};

}  // namespace nulo::service
