#include "transcription/PlainSessionDelegate.h"

#include <memory>
#include <utility>

#include "base/Text.h"
#include "transcription/TranscriptionError.h"

namespace nulo {

void PlainSessionDelegate::add(HttpTaskId task, Completion completion) {
    m_exchanges.add(task, std::make_shared<Exchange>(Exchange{std::move(completion), {}}));
}

void PlainSessionDelegate::didReceiveResponse(HttpTaskId task, const HttpResponseHead& head) {
    if (const auto exchange = m_exchanges.find(task))
        exchange->answer.status = head.status;
}

bool PlainSessionDelegate::didReceiveData(HttpTaskId task, std::string_view bytes) {
    const auto exchange = m_exchanges.find(task);
    if (!exchange)
        return false;
    Answer& answer = exchange->answer;
    const bool isText = answer.status == 200;
    const std::size_t room = (isText ? largestText : largestErrorBody) - answer.body.size();
    if (bytes.size() <= room) {
        answer.body += bytes;
        return true;
    }
    answer.isTooLong = isText;
    answer.body += bytes.substr(0, completeUtf8Length(bytes.substr(0, room)));
    return false;
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
