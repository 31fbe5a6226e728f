#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/HttpUrl.h"
#include "base/Lifetime.h"
#include "platform/Backends.h"
#include "platform/http/FileDownload.h"
#include "platform/http/HttpExchangeRules.h"
#include "platform/http/HttpUrl.h"

namespace nulo {
namespace {

constexpr int mostRedirects = 8;

Error refusedAddress(const std::string& url) {
    return {"The address " + url + " is not secure: it must be https"};
}

/// One request in a session of its own, so that ending it ends the transfer: a full disk needs no
/// further bytes. Made and destroyed on main; in between the session's thread owns the rest.
class Exchange final : public HttpSessionDelegate {
  public:
    /// `body` takes pieces until it fails; `done` is called once. Both on the session's thread.
    using TakeBody = std::function<Outcome(std::string_view bytes)>;
    using Done = std::function<void(const Result<int>& status)>;

    Exchange(TakeBody body, Done done) : m_body(std::move(body)), m_done(std::move(done)) {
        m_session = makeCurlHttpSession(*this);
    }

    void start(const std::string& url) {
        m_url = url;
        HttpRequest request;
        request.method = "GET";
        request.url = url;
        request.peer = "the server";
        m_session->resume(m_session->createTask(std::move(request)));
    }

  private:
    void didReceiveResponse(HttpTaskId, const HttpResponseHead& head) override {
        m_status = head.status;
        m_next = redirectTarget(head);
    }
    void didReceiveData(HttpTaskId, std::string_view bytes) override {
        if (m_ended || m_next)
            return;
        if (const auto taken = m_body(bytes); !taken)
            end(taken.error());
    }
    void didCollectMetrics(HttpTaskId, const std::vector<HttpTransactionMetrics>&) override {}
    void didComplete(HttpTaskId, const std::optional<Error>& error) override {
        if (m_ended)
            return;
        if (m_next)  // also when its body was cut off: nobody wants that
            return followRedirect(*std::exchange(m_next, std::nullopt));
        if (error)
            return end(*error);
        end(m_status);
    }

    /// The session follows redirects within one origin; what is downloaded often lies elsewhere.
    void followRedirect(const std::string& reference) {
        const auto base = parseHttpUrl(m_url);
        const auto next = base ? resolveHttpUrl(*base, reference) : std::nullopt;
        if (!next)
            return end(refusedAddress(reference));
        // Nor from https to this machine: what runs here is none of the server's business.
        const bool isDowngrade =
            base->origin.starts_with("https:") && !next->origin.starts_with("https:");
        if (isDowngrade || !isSecureHttpUrl(next->text))
            return end(refusedAddress(next->text));
        if (++m_redirects > mostRedirects)
            return end(Error{"The server sends the request from one address to another forever"});
        start(next->text);
    }

    void end(const Result<int>& result) {
        m_ended = true;
        m_done(result);
    }

    const TakeBody m_body;
    const Done m_done;
    std::string m_url;
    int m_status = 0;
    int m_redirects = 0;
    std::optional<std::string> m_next;
    bool m_ended = false;
    std::unique_ptr<HttpSession> m_session;  // goes first: it joins the thread that uses the rest
};

class CurlUpdateHttp final : public UpdateHttp {
  public:
    explicit CurlUpdateHttp(MainQueue& mainQueue) : m_mainQueue(mainQueue) {}

    void get(const std::string& url, std::size_t limit, GetCompletion completion) override {
        const auto body = std::make_shared<std::string>();
        const auto take = [body, limit](std::string_view bytes) -> Outcome {
            body->append(bytes.substr(0, limit - body->size()));
            if (body->size() < limit)
                return Success{};
            return Error{};  // enough; the completion tells it from a failure
        };
        start(url, take, [body, limit, completion](const Result<int>& status) {
            if (status || body->size() >= limit)
                completion(std::move(*body));
            else
                completion(status.error());
        });
    }

    void download(const std::string& url, const std::filesystem::path& path,
                  DownloadCompletion completion) override {
        const auto file = std::make_shared<FileDownload>();
        if (const auto created = file->create(path); !created)
            return later([completion, error = created.error()] { completion(error); });
        const auto take = [file](std::string_view bytes) { return file->write(bytes); };
        start(url, take, [file, completion](const Result<int>& status) {
            const auto closed = file->close();
            if (!status)
                return completion(status.error());
            if (!closed)
                return completion(closed.error());
            file->keep();
            completion(status);
        });
    }

  private:
    using Finish = std::function<void(const Result<int>& status)>;

    void later(std::function<void()> work) { m_mainQueue.async(m_lifetime.guard(std::move(work))); }

    /// `finish` runs on main, once the exchange is gone.
    void start(const std::string& url, Exchange::TakeBody take, Finish finish) {
        if (!isSecureHttpUrl(url))
            return later([finish, url] { finish(refusedAddress(url)); });
        const int number = ++m_lastNumber;
        auto onMain = m_lifetime.guard([this, number, finish](const Result<int>& status) {
            m_exchanges.erase(std::find_if(m_exchanges.begin(), m_exchanges.end(),
                                           [&](const auto& it) { return it.first == number; }));
            finish(status);
        });
        auto done = [&queue = m_mainQueue, onMain](const Result<int>& status) {
            queue.async([onMain, status]() mutable { onMain(status); });
        };
        m_exchanges.emplace_back(number, std::make_unique<Exchange>(std::move(take), done));
        m_exchanges.back().second->start(url);
    }

    MainQueue& m_mainQueue;
    int m_lastNumber = 0;
    std::vector<std::pair<int, std::unique_ptr<Exchange>>> m_exchanges;
    Lifetime m_lifetime;
};

}  // namespace

std::unique_ptr<UpdateHttp> makeCurlUpdateHttp(MainQueue& mainQueue) {
    return std::make_unique<CurlUpdateHttp>(mainQueue);
}

}  // namespace nulo
