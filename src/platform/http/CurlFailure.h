#pragma once

#include <chrono>
#include <string>

#include "base/HttpUrl.h"
#include "base/Result.h"

namespace nulo {

/// What is known about an exchange that libcurl gave up.
struct CurlFailure {
    int code = 0;         // a CURLcode
    int systemError = 0;  // errno of the failed connection, 0 when unknown
    int proxyStatus = 0;  // a proxy's answer to CONNECT, 0 without one
    std::string detail;   // libcurl's own words; used for certificates and TLS only
    std::string peer;     // as HttpRequest::peer
    std::chrono::milliseconds idleTimeout{};
};

/// A sentence that a person can act on; never holds a header's value.
Error describe(const CurlFailure& failure, const HttpUrl& url);

/// The error of an exchange on which nothing came or went for `idleTimeout`; `connected` tells
/// whether the connection stood.
Error describeSilence(std::chrono::milliseconds idleTimeout, bool connected, std::string peer,
                      const HttpUrl& url);

}  // namespace nulo
