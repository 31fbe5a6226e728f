#include "base/HttpUrl.h"

#include <gtest/gtest.h>

namespace nulo {
namespace {

// Catches origins that no request could go to, and good ones refused.
TEST(HttpUrl, isValidWithASchemeAndAHost) {
    for (const char* good : {"https://speech.example/api", "HTTP://127.0.0.1:8737/api",
                             "http://[::1]:8737//api", "https://a@h", "https://h/?q=a:b"})
        EXPECT_TRUE(isValidHttpUrl(good)) << good;
    for (const char* bad :
         {"", "/api", "speech.example/api", "ftp://h/api", "https:/h", "https:///a",
          "https://:80/a", "https://h:/a", "https://h:65536/a", "https://h:8x/a", "https://a b/",
          "https://h/\n", "https://[::1/a", "https://[]/a", "https://[h]/", "https://é/", "https",
          "https://h%2ex/", "https://a@b@h/"})
        EXPECT_FALSE(isValidHttpUrl(bad)) << bad;
}

// What could be read or changed on its way must not be installed.
TEST(HttpUrl, isSecureOverTlsOrOnThisMachine) {
    for (const char* good :
         {"https://h/a", "HTTPS://h", "http://localhost/a", "http://LocalHost:1",
          "http://127.0.0.1:8737", "http://127.9.9.9", "http://[::1]:8737/a", "http://127.1",
          "http://2130706433:1", "http://[::ffff:127.0.0.1]", "http://a@127.0.0.1"})
        EXPECT_TRUE(isSecureHttpUrl(good)) << good;
    for (const char* bad :
         {"http://h", "http://127.0.0.1@h/", "http://127.0.0.1.h/", "http://localhost.h",
          "http://127.0.0.1/../x y", "http://h#@localhost", "http://[::2]", "http://10.0.0.1",
          "http://127.0.0.1%2eh/", "ftp://localhost", "", "localhost", "http://127.999.1.1",
          "http://h.localhost", "http://2130706433.h", "http://128.1", "http://[::ffff:10.0.0.1]"})
        EXPECT_FALSE(isSecureHttpUrl(bad)) << bad;
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
