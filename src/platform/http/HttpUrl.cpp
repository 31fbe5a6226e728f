#include "platform/http/HttpUrl.h"

#include <curl/curl.h>
#include <algorithm>
#include <memory>

namespace nulo {
namespace {

struct UrlDeleter {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlDeleter>;

std::string part(CURLU* url, CURLUPart which, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url, which, &text, flags) != CURLUE_OK)
        return {};
    std::string result = text;
    curl_free(text);
    return result;
}

std::string lowerCase(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

bool isPrintable(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return c > ' ' && c != 127; });
}

std::optional<HttpUrl> read(CURLU* url) {
    const std::string scheme = part(url, CURLUPART_SCHEME);
    if (scheme != "http" && scheme != "https")
        return std::nullopt;
    HttpUrl result;
    result.text = part(url, CURLUPART_URL);
    const std::string bracketed = lowerCase(part(url, CURLUPART_HOST));
    if (bracketed.empty() || !isPrintable(result.text))
        return std::nullopt;
    result.origin =
        scheme + "://" + bracketed + ":" + part(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    const std::string port = part(url, CURLUPART_PORT, CURLU_NO_DEFAULT_PORT);
    result.authority = port.empty() ? bracketed : bracketed + ":" + port;
    result.host = bracketed.front() == '[' ? bracketed.substr(1, bracketed.size() - 2) : bracketed;
    return result;
}

}  // namespace

bool HttpUrl::isLoopback() const {
    return host == "localhost" || host.ends_with(".localhost") || host == "::1" ||
           (host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string::npos);
}

std::optional<HttpUrl> parseHttpUrl(const std::string& text) {
    const UrlHandle url(curl_url());
    if (!url || !isPrintable(text) ||
        curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK)
        return std::nullopt;
    return read(url.get());
}

std::optional<HttpUrl> resolveHttpUrl(const HttpUrl& base, const std::string& reference) {
    const UrlHandle url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, base.text.c_str(), 0) != CURLUE_OK ||
        curl_url_set(url.get(), CURLUPART_URL, reference.c_str(), CURLU_URLENCODE) != CURLUE_OK)
        return std::nullopt;
    return read(url.get());
}

}  // namespace nulo
