#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/Result.h"
#include "service/Spool.h"
#include "service/StillWanted.h"

namespace nulo::service {

/// A POST to a provider. Its body is `before`, `middle` and `after`, one behind the other.
struct UpstreamRequest {
    std::string origin;  // requests of one origin share its connections
    std::string url;
    std::string bearer;  // empty: no credential is sent
    std::string contentType;
    std::string before;
    const Spool* middle = nullptr;  // borrowed until the answer is destroyed
    std::string after;
    std::chrono::milliseconds silence = std::chrono::seconds(30);  // longest wait for a next byte
};

/// Why there is no answer, or no more of it.
struct UpstreamFault {
    enum class Kind {
        notWanted,    // the client is gone
        unreachable,  // `detail` says why
        silent,
        brokenOff,  // in the middle of an answer, or where one should start
    };
    Kind kind = Kind::brokenOff;
    std::string detail;  // for a person, without a final stop
};

class UpstreamConnection;

/// An answer as it arrives. One thread at a time.
class UpstreamAnswer {
  public:
    UpstreamAnswer(std::unique_ptr<UpstreamConnection> connection,
                   std::function<void(std::unique_ptr<UpstreamConnection>)> giveBack);
    ~UpstreamAnswer();
    UpstreamAnswer(const UpstreamAnswer&) = delete;
    UpstreamAnswer& operator=(const UpstreamAnswer&) = delete;

    int status() const;
    std::string contentType() const;  // without parameters, in small letters
    std::string retryAfter() const;   // empty when there is none
    /// The next bytes, as soon as there are any; empty at the end. Nothing is read from the
    /// provider between two calls beyond a few dozen kilobytes.
    Result<std::string, UpstreamFault> read(const StillWanted& stillWanted);
    /// Says that the text is complete and only the formal end of the answer may follow. The
    /// connection can then be kept.
    void expectEnd();
    /// Reads the rest, at most `most` bytes of it.
    Result<std::string, UpstreamFault> readAll(std::size_t most, const StillWanted& stillWanted);

  private:
    std::unique_ptr<UpstreamConnection> m_connection;
    std::function<void(std::unique_ptr<UpstreamConnection>)> m_giveBack;
};

/// Asks providers, keeping connections for the next request. Proxies are those of the environment,
/// never for this machine's own servers; redirects are not followed, since what is sent is meant
/// for one server. Any thread. It must outlive its answers.
class UpstreamClient {
  public:
    struct Limits {
        std::chrono::milliseconds connect = std::chrono::seconds(10);
        std::size_t idleConnections = 32;  // kept, of each origin
    };

    explicit UpstreamClient(Limits limits);
    ~UpstreamClient();

    /// Blocks until the head of the answer is there, whatever its status.
    Result<std::unique_ptr<UpstreamAnswer>, UpstreamFault> send(const UpstreamRequest& request,
                                                                const StillWanted& stillWanted);

  private:
    std::unique_ptr<UpstreamConnection> idleConnection(const std::string& origin);
    void keep(std::unique_ptr<UpstreamConnection> connection);

    const Limits m_limits;
    std::mutex m_mutex;
    std::map<std::string, std::vector<std::unique_ptr<UpstreamConnection>>> m_idle;  // m_mutex
};

}  // namespace nulo::service
