#include <curl/curl.h>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "base/Environment.h"
#include "platform/http/CurlHttp.h"
#include "platform/http/CurlTransfer.h"

namespace nulo {
namespace {

using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr long mostIdleConnections = 8;
/// Looks at a connection within one idle time-out, for what the kernel sends without waking us.
constexpr int looksPerTimeout = 8;

class CurlHttpSession final : public HttpSession {
  public:
    explicit CurlHttpSession(HttpSessionDelegate& delegate) : m_state{delegate, {}, {}, {}} {
        static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
        m_multi = initialised == CURLE_OK ? curl_multi_init() : nullptr;
        if (!m_multi)
            throw std::bad_alloc();
        curl_multi_setopt(m_multi, CURLMOPT_MAXCONNECTS, mostIdleConnections);
        m_state.authorities = environmentVariable("SSL_CERT_FILE");
        m_thread = std::thread([this] { run(); });
    }

    ~CurlHttpSession() override {
        {
            const std::lock_guard lock(m_mutex);
            m_state.stopping = true;
            curl_multi_wakeup(m_multi);
        }
        m_thread.join();
    }

    HttpTaskId createTask(HttpRequest request) override {
        const std::lock_guard lock(m_mutex);
        m_created.emplace(++m_lastTask, std::move(request));
        return m_lastTask;
    }

    void resume(HttpTaskId task) override {
        {
            const std::lock_guard lock(m_mutex);
            auto created = m_created.extract(task);
            if (created.empty())
                return;
            m_resumed.push_back(std::move(created));
        }
        curl_multi_wakeup(m_multi);
    }

  private:
    using Tasks = std::map<HttpTaskId, HttpRequest>;
    using Transfers = std::map<CURL*, std::unique_ptr<CurlTransfer>>;

    void run() {
        // Signals are the main thread's. libcurl writes with MSG_NOSIGNAL, over TLS too; should one
        // of its libraries not, SIGPIPE stays pending here and the write fails with EPIPE.
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        while (!m_state.stopping) {
            startResumed();
            int running = 0;
            curl_multi_perform(m_multi, &running);
            const auto now = SteadyClock::now();
            for (const auto& [easy, transfer] : m_transfers)
                transfer->look(now);
            finishEnded();
            finishSilent(now);
            if (!m_state.stopping)
                curl_multi_poll(m_multi, nullptr, 0, pollTimeout(), nullptr);
        }
        for (const auto& [easy, transfer] : m_transfers)
            curl_multi_remove_handle(m_multi, easy);
        m_transfers.clear();
        { const std::lock_guard wakeUpIsDone(m_mutex); }
        curl_multi_cleanup(m_multi);  // here, because closing TLS connections writes
    }

    void startResumed() {
        std::vector<Tasks::node_type> resumed;
        {
            const std::lock_guard lock(m_mutex);
            resumed.swap(m_resumed);
        }
        for (auto& task : resumed)
            start(std::make_unique<CurlTransfer>(task.key(), std::move(task.mapped()), m_state));
    }

    void start(std::unique_ptr<CurlTransfer> transfer) {
        const auto easy = transfer->prepare();
        if (!easy) {
            transfer->complete(easy.error());
            return;
        }
        curl_multi_add_handle(m_multi, easy.value());
        m_transfers.emplace(easy.value(), std::move(transfer));
    }

    std::unique_ptr<CurlTransfer> take(CURL* easy) {
        curl_multi_remove_handle(m_multi, easy);
        return std::move(m_transfers.extract(easy).mapped());
    }

    void finishEnded() {
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(m_multi, &left)) {
            if (message->msg != CURLMSG_DONE)
                continue;
            const CURLcode result = message->data.result;
            auto transfer = take(message->easy_handle);
            if (transfer->endExchange(result))
                start(std::move(transfer));
        }
    }

    void finishSilent(SteadyClock::time_point now) {
        std::vector<CURL*> silent;
        for (const auto& [easy, transfer] : m_transfers)
            if (now >= transfer->deadline())
                silent.push_back(easy);
        for (CURL* easy : silent)
            take(easy)->endInSilence();
    }

    /// Milliseconds; without a transfer there is nothing to look at.
    int pollTimeout() const {
        auto wait = milliseconds(std::numeric_limits<int>::max());
        const auto now = SteadyClock::now();
        for (const auto& [easy, transfer] : m_transfers) {
            const auto left = std::chrono::ceil<milliseconds>(transfer->deadline() - now);
            const auto look = transfer->idleTimeout() / looksPerTimeout;
            wait = std::min(wait, std::max(std::min(left, look), milliseconds(1)));
        }
        return static_cast<int>(wait.count());
    }

    CurlSessionState m_state;
    CURLM* m_multi = nullptr;

    std::mutex m_mutex;  // guards the next three; held only to move a request in or out
    HttpTaskId m_lastTask = 0;
    Tasks m_created;
    std::vector<Tasks::node_type> m_resumed;

    Transfers m_transfers;  // session thread only
    std::thread m_thread;
};

}  // namespace

std::unique_ptr<HttpSession> makeCurlHttpSession(HttpSessionDelegate& delegate) {
    return std::make_unique<CurlHttpSession>(delegate);
}

}  // namespace nulo
