#include "service/gateway/ProviderCalls.h"

#include "service/Strings.h"
#include "service/gateway/UpstreamFailure.h"

namespace nulo::service {
namespace {

constexpr std::size_t largestError = 64 * 1024;

std::optional<int> wholeSeconds(std::optional<std::chrono::milliseconds> duration) {
    if (!duration)
        return std::nullopt;
    return static_cast<int>(std::chrono::ceil<std::chrono::seconds>(*duration).count());
}

}  // namespace

ProviderCalls::ProviderCalls(UpstreamClient& client, const Clock& clock, Sleep sleep, Print print,
                             Metrics& metrics, Limits limits)
    : m_client(client),
      m_clock(clock),
      m_sleep(std::move(sleep)),
      m_print(std::move(print)),
      m_metrics(metrics),
      m_limits(limits),
      m_gate(limits.atOnce) {}

Failure ProviderCalls::tooBusy() {
    return {503, "The service is busy with other recordings. Try again in a few seconds.\n", 3};
}

Result<std::unique_ptr<UpstreamAnswer>, Failure> ProviderCalls::ask(
    const Route& route, const char* path, UpstreamRequest request, const StillWanted& stillWanted) {
    const Provider& provider = *route.provider;
    request.origin = provider.baseURL;
    request.url = provider.baseURL + path;
    request.bearer = provider.apiKey;
    for (int retries = 0;; ++retries) {
        auto answer = m_client.send(request, stillWanted);
        if (!answer) {
            const Failure failure = failureOf(answer.error(), provider);
            countFailure(provider, failure.status);
            return failure;
        }
        const int status = answer.value()->status();
        m_metrics.add(
            "nulo_upstream_answers_total",
            "provider=\"" + provider.name + "\",status=\"" + std::to_string(status) + "\"");
        if (status == 200)
            return std::move(answer).value();
        const auto asked = retryAfter(answer.value()->retryAfter(), m_clock.wallTime());
        const auto body = answer.value()->readAll(largestError, stillWanted);
        const std::string text = body ? body.value() : "";
        const auto delay = isQuotaError(text) ? std::nullopt : retryDelay(retries, status, asked);
        m_print(provider.name + " answered with status " + std::to_string(status) +
                (delay ? ", trying again" : ""));
        if (!delay)
            return failureOf(status, text, wholeSeconds(asked), provider, route.model);
        answer.value().reset();
        m_metrics.add("nulo_upstream_retries_total", "provider=\"" + provider.name + "\"");
        if (!sleepWhileWanted(*delay, stillWanted, m_sleep))
            return failureOf({UpstreamFault::Kind::notWanted, ""}, provider);
    }
}

void ProviderCalls::logRoute(const char* task, const Route& route) const {
    m_print(std::string(task) + ": " +
            (route.provider ? route.provider->name + " (" + printable(route.model, 100) + ")"
                            : "offline engine") +
            ", since " + route.reason);
}

void ProviderCalls::countFailure(const Provider& provider, int status) {
    m_metrics.add("nulo_upstream_failures_total",
                  "provider=\"" + provider.name + "\",status=\"" + std::to_string(status) + "\"");
    if (status != clientGone)
        m_print(provider.name + " gave no complete answer (told the client " +
                std::to_string(status) + ")");
}

}  // namespace nulo::service
