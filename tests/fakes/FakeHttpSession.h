#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "transcription/HttpSession.h"

namespace nulo {

/// The network side of a test: keeps every request that the sessions it made were given, and
/// answers when told to, on the caller's thread. Outlives the sessions. Identifiers start at 1 in
/// every session, as they may in a real one. Requests come from any thread, the rest is the test's.
class FakeHttp {
  public:
    struct Exchange {
        HttpSessionDelegate* delegate;  // dangles once its session is gone
        HttpTaskId task;
        HttpRequest request;
        bool resumed = false;

        void respond(int status, HttpHeaders headers = {}) const {
            delegate->didReceiveResponse(task, {status, std::move(headers)});
        }
        /// Whether more is wanted.
        bool data(std::string_view bytes) const { return delegate->didReceiveData(task, bytes); }
        void complete(const std::optional<Error>& error = {}) const {
            delegate->didComplete(task, error);
        }
        /// A whole answer.
        void answer(int status, std::string_view body, HttpHeaders headers = {}) const {
            respond(status, std::move(headers));
            if (!body.empty())
                data(body);
            delegate->didCollectMetrics(task, {});
            complete();
        }
    };

    std::function<std::unique_ptr<HttpSession>(HttpSessionDelegate&)> factory() {
        return [this](HttpSessionDelegate& delegate) {
            return ++sessionsMade, std::make_unique<Session>(*this, delegate);
        };
    }

    std::vector<Exchange> exchanges;  // in the order created
    int sessionsMade = 0;
    /// Called inside resume(), as a session's thread might be quick to answer.
    std::function<void(const Exchange&)> onResume;

  private:
    class Session final : public HttpSession {
      public:
        Session(FakeHttp& owner, HttpSessionDelegate& delegate)
            : m_owner(owner), m_delegate(delegate) {}

        HttpTaskId createTask(HttpRequest request) override {
            const std::lock_guard lock(m_owner.m_mutex);
            m_owner.exchanges.push_back({&m_delegate, ++m_lastTask, std::move(request)});
            return m_lastTask;
        }
        void resume(HttpTaskId task) override {
            std::unique_lock lock(m_owner.m_mutex);
            for (Exchange& exchange : m_owner.exchanges) {
                if (exchange.delegate != &m_delegate || exchange.task != task)
                    continue;
                exchange.resumed = true;
                const Exchange resumed = exchange;
                lock.unlock();
                if (m_owner.onResume)
                    m_owner.onResume(resumed);
                return;
            }
        }

      private:
        FakeHttp& m_owner;
        HttpSessionDelegate& m_delegate;
        HttpTaskId m_lastTask = 0;
    };

    std::mutex m_mutex;
};

}  // namespace nulo
