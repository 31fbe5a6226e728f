#include "transcription/StreamingSessionRouter.h"

#include <string>
#include <utility>

#include "base/Clock.h"

namespace nulo {
namespace {

using Instant = HttpTransactionMetrics::Instant;

std::string duration(const Instant& begin, const Instant& end) {
    if (!begin || !end)
        return "n/a";
    return std::to_string(wholeMilliseconds(*end - *begin)) + "ms";
}

std::string connectionLine(const HttpTransactionMetrics& metrics) {
    return std::string("[URLMetrics] ") + (metrics.reusedConnection ? "REUSED" : "NEW") + " " +
           metrics.protocolName.value_or("?") +
           " | DNS: " + duration(metrics.domainLookupStart, metrics.domainLookupEnd) +
           " | Connect: " + duration(metrics.connectStart, metrics.connectEnd) +
           " | TLS: " + duration(metrics.secureConnectionStart, metrics.secureConnectionEnd) +
           " | Request: " + duration(metrics.requestStart, metrics.requestEnd) +
           " | Response: " + duration(metrics.responseStart, metrics.responseEnd) +
           " | Total: " + duration(metrics.fetchStart, metrics.responseEnd);
}

}  // namespace

StreamingSessionRouter::StreamingSessionRouter(Print log) : m_log(std::move(log)) {}

void StreamingSessionRouter::add(HttpTaskId task, std::shared_ptr<CombinedStreamHandler> handler) {
    m_handlers.add(task, std::move(handler));
}

void StreamingSessionRouter::didReceiveResponse(HttpTaskId task, const HttpResponseHead& head) {
    if (const auto handler = m_handlers.find(task))
        handler->didReceiveResponse(head);
}

bool StreamingSessionRouter::didReceiveData(HttpTaskId task, std::string_view bytes) {
    const auto handler = m_handlers.find(task);
    return handler && handler->didReceiveData(bytes);
}

void StreamingSessionRouter::didCollectMetrics(
    HttpTaskId, const std::vector<HttpTransactionMetrics>& transactions) {
    for (const HttpTransactionMetrics& metrics : transactions) {
        m_log(connectionLine(metrics));
        if (metrics.fetchStart && metrics.requestStart && metrics.requestEnd)
            m_log(
                "[URLMetrics] fetchStart→requestStart: " +
                duration(metrics.fetchStart, metrics.requestStart) +
                ", requestStart→requestEnd: " + duration(metrics.requestStart, metrics.requestEnd));
    }
}

void StreamingSessionRouter::didComplete(HttpTaskId task, const std::optional<Error>& error) {
    if (const auto handler = m_handlers.find(task))
        handler->didComplete(error);
    m_handlers.remove(task);
}

}  // namespace nulo
