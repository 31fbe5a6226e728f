#pragma once

#include <functional>
#include <optional>
#include <string>

#include "transcription/HttpSession.h"
#include "transcription/TaskHandlers.h"

namespace nulo {

/// Collects the answers of requests that want them in one piece.
class PlainSessionDelegate final : public HttpSessionDelegate {
  public:
    struct Answer {
        std::optional<int> status;  // absent when no response came
        std::string body;           // of an error, its beginning
        bool isTooLong = false;     // status 200, and more than largestText came
    };
    using Completion = std::function<void(const std::optional<Error>& error, const Answer& answer)>;

    /// Any thread, before the task is started. `completion` runs on the session's thread.
    void add(HttpTaskId task, Completion completion);

    void didReceiveResponse(HttpTaskId task, const HttpResponseHead& head) override;
    bool didReceiveData(HttpTaskId task, std::string_view bytes) override;
    void didCollectMetrics(HttpTaskId task,
                           const std::vector<HttpTransactionMetrics>& transactions) override;
    void didComplete(HttpTaskId task, const std::optional<Error>& error) override;

  private:
    struct Exchange {
        Completion completion;
        Answer answer;
    };

    TaskHandlers<Exchange> m_exchanges;
};

}  // namespace nulo
