#include "platform/http/HttpExchangeRules.h"

#include <curl/curl.h>
#include <algorithm>
#include <memory>
#include <string_view>

#include "base/Ascii.h"

namespace nulo {

std::optional<Error> faultOf(const HttpRequest& request) {
    if (!isHttpToken(request.method))
        return Error{"The request has no valid method and was not sent"};
    for (const auto& [name, value] : request.headers) {
        if (!isHttpToken(name))
            return Error{"A request header has no valid name; the request was not sent"};
        if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
            return Error{"The value of the request header “" + name +
                         "” holds a line break or a NUL byte; the request was not sent"};
    }
    return std::nullopt;
}

HttpHeaders withoutReplacedHeaders(const HttpHeaders& headers) {
    HttpHeaders result;
    for (auto entry = headers.begin(); entry != headers.end(); ++entry)
        if (std::none_of(entry + 1, headers.end(), [&](const auto& later) {
                return equalIgnoringAsciiCase(later.first, entry->first);
            }))
            result.push_back(*entry);
    return result;
}

std::optional<std::string> redirectTarget(const HttpResponseHead& head) {
    const int status = head.status;
    if (status != 301 && status != 302 && status != 303 && status != 307 && status != 308)
        return std::nullopt;
    const auto location = head.header("Location");
    return location && !location->empty() ? std::optional<std::string>(*location) : std::nullopt;
}

std::optional<HttpUrl> resolvedHttpUrl(const HttpUrl& base, const std::string& reference) {
    const std::unique_ptr<CURLU, void (*)(CURLU*)> url(curl_url(), curl_url_cleanup);
    char* text = nullptr;
    if (!url || curl_url_set(url.get(), CURLUPART_URL, base.text.c_str(), 0) != CURLUE_OK ||
        curl_url_set(url.get(), CURLUPART_URL, reference.c_str(), CURLU_URLENCODE) != CURLUE_OK ||
        curl_url_get(url.get(), CURLUPART_URL, &text, 0) != CURLUE_OK)
        return std::nullopt;
    auto resolved = parseHttpUrl(text);
    curl_free(text);
    return resolved;
}

void adaptToRedirect(HttpRequest& request, int status) {
    const bool becomesGet = (status == 303 && request.method != "HEAD") ||
                            ((status == 301 || status == 302) && request.method == "POST");
    if (!becomesGet)
        return;
    request.method = "GET";
    request.body = {};
    std::erase_if(request.headers, [](const auto& header) {
        return equalIgnoringAsciiCase(header.first.substr(0, 8), "Content-");
    });
}

}  // namespace nulo
