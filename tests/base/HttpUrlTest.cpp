#include "base/HttpUrl.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

// Origins that no request could go to, and good ones refused. What could be read or changed on its
// way is neither sent nor installed: that wants TLS, or this machine.
TEST(HttpUrl, isValidWithASchemeAndAHostAndSecureOverTlsOrOnThisMachine) {
    for (const char* secure :
         {"https://h/a", "HTTPS://h", "https://a@h", "https://h/?q=a:b", "http://localhost/a",
          "http://LocalHost:1", "http://127.0.0.1:8737", "http://127.9.9.9", "http://[::1]:8737//a",
          "http://127.1", "http://2130706433:1", "http://[::ffff:127.0.0.1]", "http://a@127.0.0.1"})
        EXPECT_TRUE(isSecureHttpUrl(secure) && isValidHttpUrl(secure)) << secure;
    for (const char* open :
         {"HTTP://h", "http://127.0.0.1@h/", "http://127.0.0.1.h/", "http://localhost.h",
          "http://[::2]", "http://10.0.0.1", "http://h.localhost", "http://2130706433.h",
          "http://128.1", "http://[::ffff:10.0.0.1]"})
        EXPECT_TRUE(!isSecureHttpUrl(open) && isValidHttpUrl(open)) << open;
    for (const char* bad :
         {"", "/api", "h/api", "ftp://localhost/a", "https:/h", "https:///a", "https",
          "https://:80/a", "https://h:/a", "https://h:65536/a", "https://h:8x/a", "https://a b/",
          "https://h/\n", "https://[::1/a", "https://[]/a", "https://[h]/", "https://é/",
          "http://127.0.0.1%2eh/", "https://a@b@h/"})
        EXPECT_FALSE(isSecureHttpUrl(bad) || isValidHttpUrl(bad)) << bad;
    for (const char* odd : {"http://h#@localhost", "http://127.999.1.1"})
        EXPECT_FALSE(isSecureHttpUrl(odd)) << odd;
}

// A person is told of the wrong peer, and requests that carry credentials go to the wrong origin.
TEST(HttpUrl, knowsItsParts) {
    const auto url = parseHttpUrl("HTTPS://User@Speech.Example:0443/A?b#c");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->origin, "https://speech.example:443");
    EXPECT_EQ(url->authority, "speech.example");
    EXPECT_EQ(parseHttpUrl("http://[::1]:8737")->authority, "[::1]:8737");
    EXPECT_EQ(parseHttpUrl("http://[::1]:8737")->host, "::1");
}

}  // namespace
}  // namespace nulo
