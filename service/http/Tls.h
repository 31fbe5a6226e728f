#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>

#include "base/Result.h"
#include "service/gateway/GatewayConfig.h"

struct ssl_ctx_st;
struct ssl_st;

namespace nulo::service {

/// A certificate with its key, for any number of connections. Any thread.
class TlsContext {
  public:
    /// The error names the file that does not fit.
    static Result<std::unique_ptr<TlsContext>> load(const TlsFiles& files);

    ssl_ctx_st* get() const { return m_context.get(); }

  private:
    explicit TlsContext(ssl_ctx_st* context);

    std::unique_ptr<ssl_ctx_st, void (*)(ssl_ctx_st*)> m_context;
};

/// What travels over a client's socket: as it is, or encrypted. Nothing here waits.
class Wire {
  public:
    /// Bytes moved; otherwise what poll() has to wait for, or nothing when the peer is gone.
    struct Outcome {
        ssize_t count = 0;
        short wait = 0;
    };

    /// `tls` may be null: no encryption. Borrows the socket.
    Wire(int socket, const TlsContext* tls);

    Outcome receive(char* target, std::size_t room);
    Outcome send(const char* data, std::size_t size);
    /// Tells the peer that nothing more is sent.
    void end();

  private:
    Outcome outcomeOf(int result);

    const int m_socket;
    std::unique_ptr<ssl_st, void (*)(ssl_st*)> m_tls;
    bool m_failed = false;
};

}  // namespace nulo::service
