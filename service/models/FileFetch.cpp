#include "service/models/FileFetch.h"

#include <curl/curl.h>

#include <array>
#include <memory>
#include <new>
#include <optional>

#include "service/models/Amounts.h"

namespace nulo::service {
namespace {

constexpr int mostRedirects = 8;
/// Less than that is no connection that brings anything on.
constexpr std::uintmax_t worthAnother = 1'000'000;
constexpr long leastBytesPerSecond = 1000;

using Kind = ModelFailure::Kind;

/// One request and its answer.
class Attempt {
  public:
    Attempt(const HttpUrl& asked, const HttpUrl& url, PartialFile& part, const FetchLimits& limits,
            const OnFetched& onFetched, const StillWanted& stillWanted)
        : m_asked(asked),
          m_url(url),
          m_part(part),
          m_limits(limits),
          m_onFetched(onFetched),
          m_stillWanted(stillWanted),
          m_offset(part.size()),
          m_easy(curl_easy_init(), curl_easy_cleanup),
          m_headers(nullptr, curl_slist_free_all) {
        if (!m_easy)
            throw std::bad_alloc();
    }

    void run() {
        prepare();
        m_result = curl_easy_perform(m_easy.get());
        curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &m_status);
        if (m_result == CURLE_OK && carriesFile() && !m_begun)
            begin();  // an empty file has no body to begin with
    }

    /// What ended it for good; nothing when there is the file, or a redirect to follow.
    std::optional<ModelFailure> failure() const {
        if (m_failure)
            return m_failure;
        if (m_result == CURLE_ABORTED_BY_CALLBACK)
            return ModelFailure{Kind::interrupted, "interrupted" + kept()};
        if (m_status >= 300 && (m_result == CURLE_OK || m_result == CURLE_WRITE_ERROR))
            return isRedirect() || m_status == 416 ? std::nullopt : std::optional(refusal());
        if (m_result == CURLE_OK && carriesFile())
            return std::nullopt;
        return ModelFailure{Kind::server, reason() + kept()};
    }
    bool isRedirect() const { return m_status >= 300 && m_status < 400 && !location().empty(); }
    std::string location() const {
        const char* url = nullptr;
        curl_easy_getinfo(m_easy.get(), CURLINFO_REDIRECT_URL, &url);
        return url ? url : "";
    }
    /// The server says that there is nothing behind what is here.
    bool endsHere() const { return m_status == 416; }
    bool hasWhole() const {
        return header("Content-Range") == "bytes */" + std::to_string(m_part.size());
    }
    /// The connection was lost in the middle of the file.
    bool brokeOff() const {
        return m_begun && !m_failure &&
               (m_result == CURLE_PARTIAL_FILE || m_result == CURLE_RECV_ERROR ||
                m_result == CURLE_HTTP2_STREAM || m_result == CURLE_HTTP2 ||
                m_result == CURLE_OPERATION_TIMEDOUT);
    }

  private:
    template <typename Value>
    void set(CURLoption option, Value value) {
        curl_easy_setopt(m_easy.get(), option, value);
    }

    void prepare() {
        set(CURLOPT_URL, m_url.text.c_str());
        set(CURLOPT_PROTOCOLS_STR, "http,https");
        set(CURLOPT_FOLLOWLOCATION, 0L);
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_USERAGENT, "nulo-service");
        set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
        set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
        set(CURLOPT_ERRORBUFFER, m_detail.data());
        set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(m_limits.connect.count()));
        set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(m_limits.silence.count()));
        set(CURLOPT_LOW_SPEED_LIMIT, leastBytesPerSecond);
        set(CURLOPT_TIMEOUT, static_cast<long>(m_limits.whole.count()));
        set(CURLOPT_BUFFERSIZE, 256 * 1024L);
        set(CURLOPT_WRITEFUNCTION, &Attempt::onBody);
        set(CURLOPT_WRITEDATA, this);
        set(CURLOPT_NOPROGRESS, 0L);
        set(CURLOPT_XFERINFOFUNCTION, &Attempt::onMove);
        set(CURLOPT_XFERINFODATA, this);
        if (isThisMachine(m_url.host))
            set(CURLOPT_PROXY, "");
        if (m_offset == 0)
            return;
        append("Range: bytes=" + std::to_string(m_offset) + "-");
        // Of another mirror nobody knows whether it names its files alike; the digest will tell.
        const PartialFile::Origin& origin = m_part.origin();
        if (origin.url == m_asked.text && !origin.validator.empty())
            append("If-Range: " + origin.validator);
        set(CURLOPT_HTTPHEADER, m_headers.get());
    }
    void append(const std::string& line) {
        curl_slist* longer = curl_slist_append(m_headers.get(), line.c_str());
        if (!longer)
            throw std::bad_alloc();
        (void)m_headers.release();
        m_headers.reset(longer);
    }

    static int onMove(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        const Attempt& attempt = *static_cast<Attempt*>(self);
        if (attempt.m_begun)
            attempt.m_onFetched(attempt.m_part.size(), attempt.m_total);
        return attempt.m_stillWanted() ? 0 : 1;
    }
    static std::size_t onBody(char* bytes, std::size_t, std::size_t count, void* self) {
        return static_cast<Attempt*>(self)->take({bytes, count}) ? count : 0;
    }
    /// False ends the transfer.
    bool take(std::string_view bytes) {
        curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &m_status);
        if (!carriesFile() || (!m_begun && !begin()))
            return false;  // what a page about a failure says is for nobody
        if (m_part.size() + bytes.size() > m_limits.largestFile)
            return fail({Kind::server, "the file at " + m_url.authority + " has no end"});
        const auto written = m_part.append(bytes);
        return written ? true : fail(written.error());
    }
    /// Before the first byte of the file.
    bool begin() {
        m_begun = true;
        if (header("Content-Type").starts_with("text/html"))
            return fail({Kind::server, "a web page, and no model, is at " + m_asked.text});
        curl_off_t length = -1;
        curl_easy_getinfo(m_easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        const std::uintmax_t rest = length > 0 ? static_cast<std::uintmax_t>(length) : 0;
        if (m_status == 206 &&
            !header("Content-Range").starts_with("bytes " + std::to_string(m_offset) + "-"))
            return fail({Kind::server,
                         m_url.authority + " sent another part of the file than it was asked for"});
        if (m_status == 200)
            if (const auto begun = m_part.restart({m_asked.text, validator()}); !begun)
                return fail(begun.error());
        m_total = length > 0 ? m_part.size() + rest : 0;
        if (m_total > m_limits.largestFile)
            return fail({Kind::server,
                         "the file at " + m_url.authority + " is too large: " + amountOf(m_total)});
        const auto room = m_part.checkRoomFor(rest);
        return room ? true : fail(room.error());
    }
    bool fail(ModelFailure failure) {
        m_failure = std::move(failure);
        return false;
    }

    bool carriesFile() const { return m_status == 200 || (m_status == 206 && m_offset > 0); }
    std::string header(const char* name) const {
        curl_header* found = nullptr;
        const auto code = curl_easy_header(m_easy.get(), name, 0, CURLH_HEADER, -1, &found);
        return code == CURLHE_OK ? found->value : "";
    }
    /// A weak one says nothing about bytes.
    std::string validator() const {
        const std::string tag = header("ETag");
        return tag.starts_with('"') ? tag : header("Last-Modified");
    }

    ModelFailure refusal() const {
        const std::string where = m_asked.text + " (status " + std::to_string(m_status) + ")";
        if (m_status == 404 || m_status == 410)
            return {Kind::server, "there is no such file at " + where};
        if (m_status == 401 || m_status == 403)
            return {Kind::server, "the server does not give the file away: " + where};
        if (m_status == 429 || m_status >= 500)
            return {Kind::server,
                    "the server cannot serve the file now; try again later: " + where};
        return {Kind::server, "the server did not send the file: " + where};
    }
    std::string reason() const {
        const std::string& host = m_url.authority;
        switch (m_result) {
            case CURLE_COULDNT_RESOLVE_HOST:
                return "the name of " + host + " could not be found";
            case CURLE_OPERATION_TIMEDOUT:
                return isConnected()
                           ? host + " sent next to nothing for " + shortDuration(m_limits.silence)
                           : host + " could not be reached in time";
            case CURLE_PARTIAL_FILE:
            case CURLE_RECV_ERROR:
            case CURLE_GOT_NOTHING:
                return "the connection to " + host + " was lost";
            case CURLE_OK:
            case CURLE_WRITE_ERROR:
                return host + " answered with status " + std::to_string(m_status);
            default:
                return host + " could not be asked: " +
                       (m_detail.front() ? m_detail.data() : curl_easy_strerror(m_result));
        }
    }
    bool isConnected() const {
        curl_off_t microseconds = 0;
        curl_easy_getinfo(m_easy.get(), CURLINFO_PRETRANSFER_TIME_T, &microseconds);
        return microseconds > 0;
    }
    std::string kept() const {
        return m_part.size() == 0 ? "; give the same command again later"
                                  : "; " + amountOf(m_part.size()) +
                                        " have arrived, and the same command goes on from there";
    }

    const HttpUrl& m_asked;  // before any redirect
    const HttpUrl& m_url;
    PartialFile& m_part;
    const FetchLimits& m_limits;
    const OnFetched& m_onFetched;
    const StillWanted& m_stillWanted;
    const std::uintmax_t m_offset;
    const std::unique_ptr<CURL, void (*)(CURL*)> m_easy;
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> m_headers;
    std::array<char, CURL_ERROR_SIZE> m_detail{};
    CURLcode m_result = CURLE_OK;
    long m_status = 0;
    bool m_begun = false;
    std::uintmax_t m_total = 0;
    std::optional<ModelFailure> m_failure;
};

}  // namespace

ModelOutcome fetchFile(const HttpUrl& url, PartialFile& part, const FetchLimits& limits,
                       const OnFetched& onFetched, const StillWanted& stillWanted) {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (initialised != CURLE_OK)
        return ModelFailure{Kind::refused, "libcurl cannot be initialised"};
    HttpUrl next = url;
    std::uintmax_t reached = part.size();
    for (int redirects = 0; redirects <= mostRedirects;) {
        Attempt attempt(url, next, part, limits, onFetched, stillWanted);
        attempt.run();
        // Measured by what never was there before: a server may begin anew each time.
        if (attempt.brokeOff() && part.size() >= reached + worthAnother) {
            reached = part.size();
            next = url;  // what it led to may be good for one time
            redirects = 0;
            continue;
        }
        if (auto failure = attempt.failure())
            return *std::move(failure);
        if (attempt.endsHere()) {
            if (attempt.hasWhole())
                return Success{};
            if (const auto begun = part.restart({url.text, ""}); !begun)
                return begun;
            ++redirects;
            continue;
        }
        if (!attempt.isRedirect())
            return Success{};
        const auto target = parseHttpUrl(attempt.location());
        const bool allowed =
            target && (target->isEncrypted || (!next.isEncrypted && target->isSecure()));
        if (!allowed)
            return ModelFailure{Kind::server, next.authority +
                                                  " redirects to an address that is not https, "
                                                  "which is not followed"};
        next = *target;
        ++redirects;
    }
    return ModelFailure{Kind::server, url.authority + " redirects without an end"};
}

}  // namespace nulo::service
