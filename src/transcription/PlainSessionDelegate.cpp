#include "transcription/PlainSessionDelegate.h"

#include <memory>
#include <utility>

namespace nulo {

void PlainSessionDelegate::add(HttpTaskId task, Completion completion) {
    m_exchanges.add(task, std::make_shared<Exchange>(Exchange{std::move(completion), {}}));
}

void PlainSessionDelegate::didReceiveResponse(HttpTaskId task, const HttpResponseHead& head) {
    if (const auto exchange = m_exchanges.find(task))
        exchange->answer.status = head.status;
}

void PlainSessionDelegate::didReceiveData(HttpTaskId task, std::string_view bytes) {
    if (const auto exchange = m_exchanges.find(task))
        exchange->answer.body += bytes;
}

void PlainSessionDelegate::didCollectMetrics(HttpTaskId,
                                             const std::vector<HttpTransactionMetrics>&) {}

void PlainSessionDelegate::didComplete(HttpTaskId task, const std::optional<Error>& error) {
    const auto exchange = m_exchanges.find(task);
    m_exchanges.remove(task);
    if (exchange)
        exchange->completion(error, exchange->answer);
}

}  // namespace nulo
