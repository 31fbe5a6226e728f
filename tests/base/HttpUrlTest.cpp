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
          "https://h/\n", "https://[::1/a", "https://[]/a", "https://é/", "https"})
        EXPECT_FALSE(isValidHttpUrl(bad)) << bad;
}

}  // namespace
}  // namespace nulo
