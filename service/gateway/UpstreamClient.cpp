#include "service/gateway/UpstreamClient.h"

#include <algorithm>
#include <stdexcept>

#include "base/Ascii.h"

#include "service/gateway/UpstreamConnection.h"

namespace nulo::service {

UpstreamAnswer::UpstreamAnswer(std::unique_ptr<UpstreamConnection> connection,
                               std::function<void(std::unique_ptr<UpstreamConnection>)> giveBack)
    : m_connection(std::move(connection)), m_giveBack(std::move(giveBack)) {}

UpstreamAnswer::~UpstreamAnswer() {
    if (m_connection->finish())
        m_giveBack(std::move(m_connection));
}

int UpstreamAnswer::status() const {
    return m_connection->status();
}

std::string UpstreamAnswer::contentType() const {
    std::string type = m_connection->header("Content-Type");
    type.resize(std::min(type.find_first_of("; "), type.size()));
    return asciiLower(type);
}

std::string UpstreamAnswer::retryAfter() const {
    return m_connection->header("Retry-After");
}

Result<std::string, UpstreamFault> UpstreamAnswer::read(const StillWanted& stillWanted) {
    return m_connection->read(stillWanted);
}

void UpstreamAnswer::expectEnd() {
    m_connection->expectEnd();
}

Result<std::string, UpstreamFault> UpstreamAnswer::readAll(std::size_t most,
                                                           const StillWanted& stillWanted) {
    std::string all;
    for (;;) {
        auto piece = read(stillWanted);
        if (!piece)
            return piece;
        if (piece.value().empty())
            return all;
        all += piece.value();
        if (all.size() > most)
            return UpstreamFault{UpstreamFault::Kind::brokenOff, "its answer is too large"};
    }
}

UpstreamClient::UpstreamClient(Limits limits) : m_limits(limits) {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (initialised != CURLE_OK)
        throw std::runtime_error("libcurl cannot be initialised");
}

UpstreamClient::~UpstreamClient() = default;

Result<std::unique_ptr<UpstreamAnswer>, UpstreamFault> UpstreamClient::send(
    const UpstreamRequest& request, const StillWanted& stillWanted) {
    auto connection = idleConnection(request.origin);
    connection->start(request, m_limits.connect);
    if (auto fault = connection->waitForHead(stillWanted))
        return *fault;
    return std::make_unique<UpstreamAnswer>(
        std::move(connection),
        [this](std::unique_ptr<UpstreamConnection> kept) { keep(std::move(kept)); });
}

std::unique_ptr<UpstreamConnection> UpstreamClient::idleConnection(const std::string& origin) {
    {
        const std::scoped_lock lock(m_mutex);
        auto& idle = m_idle[origin];
        if (!idle.empty()) {
            auto connection = std::move(idle.back());  // the one that was used last
            idle.pop_back();
            return connection;
        }
    }
    return std::make_unique<UpstreamConnection>(origin);
}

void UpstreamClient::keep(std::unique_ptr<UpstreamConnection> connection) {
    const std::scoped_lock lock(m_mutex);
    auto& idle = m_idle[connection->origin()];
    if (idle.size() < m_limits.idleConnections)
        idle.push_back(std::move(connection));
}

}  // namespace nulo::service
