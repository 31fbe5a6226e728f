#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/HttpUrl.h"
#include "base/Lifetime.h"
#include "platform/http/CurlHttp.h"
#include "platform/http/FileDownload.h"
#include "platform/http/HttpExchangeRules.h"

namespace nulo {
namespace {

Error refusedAddress(const std::string& url) {
    return {"The address " + url + " is not secure: it must be https"};
}

/// One request in a session of its own, so that ending it ends the transfer: a full disk needs no
/// further bytes. Made and destroyed on main; in between the session's thread owns the rest.
class Exchange final : public HttpSessionDelegate {
  public:
    using Ending = Result<UpdateHttp::Download>;
    /// `body` takes pieces until it fails or wants no more; `done` is called once. Both on the
    /// session's thread.
    using TakeBody = std::function<Result<bool>(std::string_view bytes)>;
    using Done = std::function<void(const Ending& ending)>;

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
        m_download.status = head.status;
        m_download.isWhole = head.header("Content-Length") ||
                             head.header("Transfer-Encoding").value_or("").ends_with("chunked");
        m_next = redirectTarget(head);
    }
    bool didReceiveData(HttpTaskId, std::string_view bytes) override {
        if (m_next)
            return true;
        const auto wantsMore = m_body(bytes);
        if (!wantsMore)
            end(wantsMore.error());
        return wantsMore && wantsMore.value();
    }
    void didCollectMetrics(HttpTaskId,
                           const std::vector<HttpTransactionMetrics>& exchanges) override {
        // HTTP/1 lets the end of the connection stand for that of the body.
        if (!exchanges.empty() && exchanges.back().protocolName == "h2")
            m_download.isWhole = true;
    }
    void didComplete(HttpTaskId, const std::optional<Error>& error) override {
        if (m_ended)
            return;
        if (m_next)  // also when its body, which is of no use, was cut off
            return followRedirect(*std::exchange(m_next, std::nullopt));
        if (error)
            return end(*error);
        end(m_download);
    }

    /// The session follows redirects within one origin; what is downloaded often lies elsewhere.
    void followRedirect(const std::string& reference) {
        const auto base = parseHttpUrl(m_url);
        const auto next = base ? resolvedHttpUrl(*base, reference) : std::nullopt;
        if (!next)
            return end(refusedAddress(reference));
        // Nor from https to this machine: what runs here is none of the server's business.
        const bool isDowngrade = base->isEncrypted && !next->isEncrypted;
        if (isDowngrade || !next->isSecure())
            return end(refusedAddress(next->text));
        if (++m_redirects > mostRedirects)
            return end(Error{"The server sends the request from one address to another forever"});
        start(next->text);
    }

    void end(const Ending& ending) {
        m_ended = true;
        m_done(ending);
    }

    const TakeBody m_body;
    const Done m_done;
    std::string m_url;
    UpdateHttp::Download m_download;
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
        const auto take = [body, limit](std::string_view bytes) -> Result<bool> {
            body->append(bytes.substr(0, limit - body->size()));
            return body->size() < limit;
        };
        start(url, take, [body, completion](const Exchange::Ending& ending) {
            ending ? completion(std::move(*body)) : completion(ending.error());
        });
    }

    void download(const std::string& url, const std::filesystem::path& path, std::uintmax_t limit,
                  DownloadCompletion completion) override {
        const auto file = std::make_shared<FileDownload>();
        if (const auto created = file->create(path); !created)
            return later([completion, error = created.error()] { completion(error); });
        const auto take = [file, limit, size = std::uintmax_t(0)](
                              std::string_view bytes) mutable -> Result<bool> {
            size += bytes.size();
            if (size > limit)
                return Error{"What came is larger than " + std::to_string(limit >> 20) + " MB"};
            const auto written = file->write(bytes);
            return written ? Result<bool>(true) : written.error();
        };
        start(url, take, [file, completion](const Exchange::Ending& ending) {
            const auto closed = file->close();
            if (!ending)
                return completion(ending.error());
            if (!closed)
                return completion(closed.error());
            file->keep();
            completion(ending);
        });
    }

    void cancel() override { m_exchanges.clear(); }

  private:
    using Finish = std::function<void(const Exchange::Ending& ending)>;

    void later(std::function<void()> work) { m_mainQueue.async(m_lifetime.guard(std::move(work))); }

    /// `finish` runs on main, once the exchange is gone.
    void start(const std::string& url, Exchange::TakeBody take, Finish finish) {
        if (!isSecureHttpUrl(url))
            return later([finish, url] { finish(refusedAddress(url)); });
        const int number = ++m_lastNumber;
        auto onMain = m_lifetime.guard([this, number, finish](const Exchange::Ending& ending) {
            if (m_exchanges.erase(number) > 0)
                finish(ending);
        });
        auto done = [&queue = m_mainQueue, onMain](const Exchange::Ending& ending) {
            queue.async([onMain, ending]() mutable { onMain(ending); });
        };
        m_exchanges.emplace(number, std::make_unique<Exchange>(std::move(take), done));
        m_exchanges.at(number)->start(url);
    }

    MainQueue& m_mainQueue;
    int m_lastNumber = 0;
    std::map<int, std::unique_ptr<Exchange>> m_exchanges;  // by their number
    Lifetime m_lifetime;
};

}  // namespace

std::unique_ptr<UpdateHttp> makeCurlUpdateHttp(MainQueue& mainQueue) {
    return std::make_unique<CurlUpdateHttp>(mainQueue);
}

}  // namespace nulo
