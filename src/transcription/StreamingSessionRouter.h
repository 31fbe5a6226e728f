#pragma once

#include <memory>

#include "base/Print.h"
#include "transcription/CombinedStreamHandler.h"
#include "transcription/HttpSession.h"
#include "transcription/TaskHandlers.h"

namespace nulo {

/// Hands what the persistent session reports to the handler of the task concerned, and writes the
/// connection timings of every task to the log. Tasks without a handler are let through and
/// dropped.
class StreamingSessionRouter final : public HttpSessionDelegate {
  public:
    explicit StreamingSessionRouter(Print log);

    /// Any thread, before the task is started. The handler is let go when its task completes.
    void add(HttpTaskId task, std::shared_ptr<CombinedStreamHandler> handler);

    void didReceiveResponse(HttpTaskId task, const HttpResponseHead& head) override;
    bool didReceiveData(HttpTaskId task, std::string_view bytes) override;
    void didCollectMetrics(HttpTaskId task,
                           const std::vector<HttpTransactionMetrics>& transactions) override;
    void didComplete(HttpTaskId task, const std::optional<Error>& error) override;

  private:
    Print m_log;
    TaskHandlers<CombinedStreamHandler> m_handlers;
};

}  // namespace nulo
