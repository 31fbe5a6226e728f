#include "platform/http/CurlFailure.h"

#include <curl/curl.h>
#include <cerrno>
#include <system_error>

#include "base/Ascii.h"

namespace nulo {
namespace {

std::string withSmallFirstLetter(std::string text) {
    const bool isWord = text.size() > 1 && text[1] >= 'a' && text[1] <= 'z';
    if (isWord)
        text[0] = asciiLower(text[0]);
    return text;
}

std::string withCapital(std::string text) {
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

std::string duration(std::chrono::milliseconds length) {
    const auto count = length.count();
    if (count % 1000 != 0)
        return std::to_string(count) + " milliseconds";
    return count == 1000 ? "1 second" : std::to_string(count / 1000) + " seconds";
}

std::string reasonOf(int systemError) {
    switch (systemError) {
        case 0:
            return "no connection";
        case ECONNREFUSED:
            return "connection refused";
        case ENETUNREACH:
        case EHOSTUNREACH:
            return "there is no route to it; check the network connection";
        default:
            return withSmallFirstLetter(std::generic_category().message(systemError));
    }
}

/// "SSL certificate problem: self-signed certificate" says the first half twice over.
std::string tlsReason(std::string detail) {
    for (const std::string prefix : {"SSL certificate problem: ", "SSL: "})
        if (detail.starts_with(prefix))
            detail.erase(0, prefix.size());
    return detail.empty() ? "no reason given" : detail;
}

}  // namespace

Error describe(const CurlFailure& failure, const HttpUrl& url) {
    const std::string service = failure.peer + " at " + url.authority;
    if (failure.proxyStatus >= 300)
        return {"The proxy refused the connection to " + url.authority + " (status " +
                std::to_string(failure.proxyStatus) + ")"};
    switch (failure.code) {
        case CURLE_COULDNT_RESOLVE_PROXY:
            return {"The proxy server named in the environment could not be found"};
        case CURLE_COULDNT_RESOLVE_HOST:
            return {"The name " + url.host + " could not be found"};
        case CURLE_COULDNT_CONNECT:
            return {"Could not connect to " + service + ": " + reasonOf(failure.systemError)};
        case CURLE_OPERATION_TIMEDOUT:  // only the time for connecting is left to libcurl
            return describeSilence(failure.idleTimeout, false, failure.peer, url);
        case CURLE_PEER_FAILED_VERIFICATION:
            return {"The certificate of " + url.host +
                    " could not be verified: " + tlsReason(failure.detail)};
        case CURLE_SSL_CACERT_BADFILE:
            return {"The certificate of " + url.host +
                    " could not be verified: the list of trusted authorities cannot be read"};
        case CURLE_SSL_CONNECT_ERROR:
            return {"Could not make a secure connection to " + service + ": " +
                    tlsReason(failure.detail)};
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            return {"The connection to " + url.authority +
                    " was closed before the answer was complete"};
        case CURLE_UNSUPPORTED_PROTOCOL:  // bytes without a status line
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_WRITE_ERROR:
            return {"What answered at " + url.authority + " does not speak HTTP"};
        case CURLE_OUT_OF_MEMORY:  // libcurl's word for a header field beyond its bound, 100 kB
            return {withCapital(service) + " answered with an oversized header, or memory ran out"};
        default:
            return {"The request to " + service + " failed: " +
                    withSmallFirstLetter(curl_easy_strerror(static_cast<CURLcode>(failure.code)))};
    }
}

Error describeSilence(std::chrono::milliseconds idleTimeout, bool connected, std::string peer,
                      const HttpUrl& url) {
    const std::string who = peer.append(" at ").append(url.authority);
    if (!connected)
        return {"Could not connect to " + who + " within " + duration(idleTimeout)};
    return {withCapital(who) + " did not answer for " + duration(idleTimeout)};
}

}  // namespace nulo
