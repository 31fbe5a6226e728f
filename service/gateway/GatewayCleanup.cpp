#include "service/gateway/GatewayCleanup.h"

#include <nlohmann/json.hpp>

#include "base/Text.h"
#include "service/gateway/ChatEvents.h"
#include "service/gateway/UpstreamFailure.h"

namespace nulo::service {
namespace {

using nlohmann::json;

std::string bodyFor(const CleanupRequest& request, const std::string& model) {
    json messages = json::array();
    for (const auto& [role, content] : request.messages)
        messages.push_back({{"role", role}, {"content", content}});
    const json body = {{"model", model}, {"stream", true}, {"messages", std::move(messages)}};
    return body.dump(-1, ' ', false, json::error_handler_t::replace);
}

/// A model's answer on its way to the client.
class Reply {
  public:
    Reply(WorkGate::Pass pass, Metrics& metrics, std::unique_ptr<UpstreamAnswer> answer,
          StillWanted stillWanted)
        : m_pass(std::move(pass)),
          m_inFlight(metrics, "nulo_upstream_in_flight"),
          m_answer(std::move(answer)),
          m_stillWanted(std::move(stillWanted)) {}

    /// Reads on until there are fragments or there will be none; the fault when it broke.
    std::optional<UpstreamFault> readOn() {
        while (m_fragments.empty() && m_state == ChatEvents::State::open) {
            const auto bytes = m_answer->read(m_stillWanted);
            if (!bytes)
                return bytes.error();
            m_state = bytes.value().empty() ? m_events.finish()
                                            : m_events.add(bytes.value(), m_fragments);
        }
        if (m_fragments.empty() && m_state == ChatEvents::State::broken)
            return UpstreamFault{UpstreamFault::Kind::brokenOff, m_events.fault()};
        if (m_state == ChatEvents::State::ended)
            m_answer->expectEnd();
        return std::nullopt;
    }
    std::vector<std::string> takeFragments() { return std::exchange(m_fragments, {}); }

  private:
    const WorkGate::Pass m_pass;
    const Metrics::InFlight m_inFlight;
    const std::unique_ptr<UpstreamAnswer> m_answer;
    const StillWanted m_stillWanted;
    ChatEvents m_events;
    ChatEvents::State m_state = ChatEvents::State::open;
    std::vector<std::string> m_fragments;
};

}  // namespace

Result<Cleanup::Stream, Failure> GatewayCleanup::start(CleanupRequest request,
                                                       const StillWanted& stillWanted) {
    const Route route = chatRoute(m_config, request.model);
    if (!m_config.providers.empty())
        m_calls.logRoute("chat", route);
    if (!route.provider)
        return m_offline.start(std::move(request), stillWanted);
    if (trimmed(request.text).empty())
        return Stream([](const Fragment&) { return true; });
    auto pass = m_calls.enter(stillWanted);
    if (!pass)
        return ProviderCalls::tooBusy();
    UpstreamRequest question;
    question.contentType = "application/json";
    question.before = bodyFor(request, route.model);
    question.silence = m_calls.limits().chatSilence;
    auto answer = m_calls.ask(route, "/chat/completions", std::move(question), stillWanted);
    if (!answer)
        return answer.error();
    const auto reply = std::make_shared<Reply>(std::move(pass), m_calls.metrics(),
                                               std::move(answer).value(), stillWanted);
    const auto failed = [&calls = m_calls, provider = route.provider](const UpstreamFault& fault) {
        const Failure failure = failureOf(fault, *provider);
        calls.countFailure(*provider, failure.status);
        return failure;
    };
    if (const auto fault = reply->readOn())
        return failed(*fault);
    return Stream([reply, failed](const Fragment& onFragment) {
        for (;;) {
            const auto fragments = reply->takeFragments();
            if (fragments.empty())
                return true;
            for (const std::string& fragment : fragments)
                if (!onFragment(fragment))
                    return false;
            if (const auto fault = reply->readOn()) {
                failed(*fault);
                return false;
            }
        }
    });
}

}  // namespace nulo::service
